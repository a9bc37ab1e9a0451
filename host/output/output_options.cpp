// host/output/output_options.cpp - see the header for the contract.
#include "host/output/output_options.h"

#include "core/text/numbers.h"
#include "host/app/option_parser.h"
#include "host/output/ffmpeg_words.h"
#include "host/output/film_codecs.h"
#include "host/output/film_timecode.h"
#include "host/output/output_file.h"
#include "host/output/word_list.h"

namespace pennywort::host {

void output_options::add_to(option_parser& parser) {
    parser
        .add_option("--codec", m_codec,
                    "h264, hevc, av1, vp9, prores or ffv1, where the kind of file has a choice")
        .type_name("NAME");
    parser.add_option("--quality", m_quality, "Of what loses something: 1 (small) to 100 (good)")
        .type_name("Q");
    parser.add_flag("--fields", m_is_interlaced,
                    "Interlaced: two frames of the page become the fields of one, the top one "
                    "first");
    parser
        .add_option("--key", m_key,
                    "Fill and key: -o gets the colour, this file the alpha as a grey film")
        .type_name("FILE");
    parser.add_option("--timecode", m_timecode, "Of the first frame, in .mov, .mp4 and .mkv")
        .type_name("HH:MM:SS:FF");
    parser
        .add_option("--ffmpeg-options", m_ffmpeg_options,
                    "For the film's ffmpeg, behind ours: '-preset slow -b:v 20M'")
        .type_name("TEXT");
}

std::string output_options::take_film(film_settings& film) const {
    film.codec = m_codec;
    film.timecode = m_timecode;
    if (!m_quality.empty()) {
        film.quality = text::whole_between<int>(m_quality, 1, 100);
        if (!film.quality) return "--quality " + m_quality + " is not a number from 1 to 100";
    }
    auto words = words_of(m_ffmpeg_options);
    if (!words) return "--ffmpeg-options: a quote has no end";
    film.ffmpeg_options = std::move(*words);
    return ffmpeg_words_complaint(film.ffmpeg_options);
}

namespace {

// The first file of a series.
std::string first_file_of(const output_target& target) {
    return target.pattern ? target.pattern->name_of(1) : target.path;
}

// "f-%d.png" and "f-%02d.png" have the same name from number 10 on.
bool may_share_a_name(const output_target& one, const output_target& other) {
    return one.pattern && other.pattern &&
           are_one_file(one.pattern->fixed_name(), other.pattern->fixed_name());
}

// Fill and key are of the same length, and two files.
std::string key_complaint(const output_target& output, const output_target& key) {
    for (const auto* one : {&output, &key}) {
        if (one->kind == output_kind::wav) return "--key: " + one->path + " holds no picture";
    }
    if (is_single_picture(output.kind) != is_single_picture(key.kind)) {
        return "--key: one of " + output.path + " and " + key.path +
               " holds one picture, and the other a film";
    }
    if (!output.to_standard_output() && are_one_file(first_file_of(output), first_file_of(key))) {
        return "--key " + key.path + " and -o " + output.path + " are the same file";
    }
    if (may_share_a_name(output, key)) {
        return "--key " + key.path + " and -o " + output.path +
               " may come to the same file: their names have to differ in more than numbers";
    }
    return {};
}

}  // namespace

std::string output_options::take_key(const output_target& output, frame_format& format,
                                     std::optional<output_target>& key) const {
    std::string reason;
    key = output_target::parse(m_key, {}, reason);
    if (!key) return "--key " + m_key + ": " + reason;
    if (key->to_standard_output()) return "--key wants a file";
    if (auto wrong = key_complaint(output, *key); !wrong.empty()) return wrong;
    frame_format film = film_format_of(format);
    film.transparent = false;
    format.transparent = true;
    return film_complaint(*key, film);
}

std::string output_options::take(const output_target& output, frame_format& format,
                                 std::optional<output_target>& key) const {
    format.is_interlaced = m_is_interlaced;
    const bool is_given = m_is_interlaced || !m_quality.empty() || !m_codec.empty() ||
                          !m_ffmpeg_options.empty() || !m_key.empty() || !m_timecode.empty();
    if (!is_given) return film_complaint(output, format);
    if (output.kind == output_kind::none) {
        return "--codec, --quality, --fields, --key, --timecode and --ffmpeg-options need an "
               "output: give -o";
    }
    if (auto wrong = take_film(format.film); !wrong.empty()) return wrong;
    frame_format film = film_format_of(format);
    if (!m_key.empty()) {
        if (auto wrong = take_key(output, format, key); !wrong.empty()) return wrong;
        film.transparent = false;
    }
    if (auto wrong = film_complaint(output, film); !wrong.empty()) return wrong;
    return m_timecode.empty() ? std::string() : timecode_complaint(m_timecode, film.rate);
}

}  // namespace pennywort::host
