// host/output/film_codecs.cpp - see the header for the contract.
#include "host/output/film_codecs.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "core/limits.h"
#include "host/output/word_list.h"

namespace pennywort::host {

namespace {

// A quality from 1 to 100 on an encoder's own scale, which ends at `worst`. The best of each scale
// is left out: H.264 becomes another profile there, which few players know.
std::string on_scale(const frame_format& format, int usual, int worst) {
    const auto& quality = format.film.quality;
    if (!quality) return std::to_string(usual);
    const auto step = std::lround((100 - *quality) * double(worst) / 100);
    return std::to_string(std::max(step, 1L));
}

bool is_quarter_colour(output_kind kind, const frame_format& format) {
    return kind != output_kind::mkv || (format.width % 2 == 0 && format.height % 2 == 0);
}

void append_h264(strings& to, output_kind kind, const frame_format& format) {
    append(to, {"-c:v", "libx264", "-preset", "veryfast", "-crf", on_scale(format, 16, 51)});
    append(to, {"-pix_fmt", is_quarter_colour(kind, format) ? "yuv420p" : "yuv444p"});
}

// Apple's players know HEVC in their own files by this tag alone.
void append_hevc(strings& to, output_kind kind, const frame_format& format) {
    append(to, {"-c:v", "libx265", "-preset", "veryfast", "-x265-params", "log-level=error", "-crf",
                on_scale(format, 18, 51)});
    if (kind != output_kind::mkv) append(to, {"-tag:v", "hvc1"});
    append(to, {"-pix_fmt", is_quarter_colour(kind, format) ? "yuv420p" : "yuv444p"});
}

void append_av1(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "libsvtav1", "-preset", "9", "-crf", on_scale(format, 24, 63), "-pix_fmt",
                "yuv420p"});
}

// Frames that are shown to nobody, which make VP9 smaller, exclude alpha.
void append_vp9(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "libvpx-vp9", "-deadline", "good", "-cpu-used", "5", "-row-mt", "1", "-b:v",
                "0", "-crf", on_scale(format, 20, 63)});
    if (format.transparent) append(to, {"-auto-alt-ref", "0"});
    append(to, {"-pix_fmt", format.transparent ? "yuva420p" : "yuv420p"});
}

void append_ffv1(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "ffv1"});
    // A single line or column has no four slices; only the first version of FFV1 has none.
    const bool has_slices = format.width > 1 && format.height > 1;
    append(to, has_slices ? strings{"-level", "3", "-slices", "4", "-slicecrc", "1"}
                          : strings{"-level", "1"});
    append(to, {"-pix_fmt", format.transparent ? "bgra" : "bgr0"});
}

// A rate control of its own would make the encoder try each block several times, five times the
// work for the same picture; at a fixed quantiser it can keep up with the page.
void append_prores(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "prores_ks", "-vendor", "apl0", "-q:v", on_scale(format, 4, 31)});
    if (format.transparent) {
        append(to, {"-profile:v", "4444", "-alpha_bits", "16", "-pix_fmt", "yuva444p10le"});
    } else {
        append(to, {"-profile:v", "hq", "-pix_fmt", "yuv422p10le"});
    }
}

void append_gif(strings& to, output_kind, const frame_format&) { append(to, {"-c:v", "gif"}); }

void append_jpeg(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "mjpeg", "-qmin", "1", "-q:v", on_scale(format, 2, 31), "-pix_fmt",
                "yuvj444p"});
}

void append_webp(strings& to, output_kind, const frame_format& format) {
    append(to, {"-c:v", "libwebp", "-quality", std::to_string(format.film.quality.value_or(90)),
                "-pix_fmt", "bgra"});
}

using enum halved_colour;

// Each side has 14 bits in the file.
constexpr long k_most_of_webp = 16383;

//                               alpha  quality fields halved  least  most
constexpr film_codec k_h264 = {"h264", false, true, true, both, 1, k_max_view_side, &append_h264};
constexpr film_codec k_hevc = {"hevc", false, true, false, both, 16, k_max_view_side, &append_hevc};
constexpr film_codec k_av1 = {"av1", false, true, false, both, 64, k_max_view_side, &append_av1};
constexpr film_codec k_vp9 = {"vp9", true, true, false, none, 1, k_max_view_side, &append_vp9};
constexpr film_codec k_ffv1 = {"ffv1", true, false, true, none, 1, k_max_view_side, &append_ffv1};
constexpr film_codec k_prores = {"prores",        true,          true, true, across, 1,
                                 k_max_view_side, &append_prores};
constexpr film_codec k_gif = {"gif", true, false, false, none, 1, k_max_view_side, &append_gif};
constexpr film_codec k_jpeg = {"jpeg", false, true, false, none, 1, k_max_view_side, &append_jpeg};
constexpr film_codec k_webp = {"webp", true, true, false, none, 1, k_most_of_webp, &append_webp};

// The usual codec is the first that loses nothing of the page.
constexpr const film_codec* k_of_mkv[] = {&k_h264, &k_ffv1, &k_hevc, &k_vp9, &k_av1, &k_prores};
constexpr const film_codec* k_of_mov[] = {&k_prores, &k_h264, &k_hevc};
constexpr const film_codec* k_of_mp4[] = {&k_h264, &k_hevc, &k_av1};
constexpr const film_codec* k_of_webm[] = {&k_vp9, &k_av1};
constexpr const film_codec* k_of_gif[] = {&k_gif};
constexpr const film_codec* k_of_jpg[] = {&k_jpeg};
constexpr const film_codec* k_of_webp[] = {&k_webp};

std::span<const film_codec* const> codecs_of(output_kind kind) {
    switch (kind) {
        case output_kind::mkv:
            return k_of_mkv;
        case output_kind::mov:
            return k_of_mov;
        case output_kind::mp4:
            return k_of_mp4;
        case output_kind::webm:
            return k_of_webm;
        case output_kind::gif:
            return k_of_gif;
        case output_kind::jpg:
        case output_kind::jpg_series:
            return k_of_jpg;
        case output_kind::webp:
        case output_kind::webp_series:
            return k_of_webp;
        default:
            return {};
    }
}

std::string names_of(std::span<const film_codec* const> codecs) {
    std::string names;
    for (const auto* codec : codecs)
        names += (names.empty() ? "" : ", ") + std::string(codec->name);
    return names;
}

std::string size_of(const frame_format& format) {
    return std::to_string(format.width) + "x" + std::to_string(format.height);
}

std::string codec_complaint(const output_target& target, const frame_format& format) {
    const auto all = codecs_of(target.kind);
    const bool is_known = std::any_of(all.begin(), all.end(), [&](const film_codec* one) {
        return format.film.codec.empty() || format.film.codec == one->name;
    });
    if (!is_known) {
        return "--codec " + format.film.codec + ": " + target.path + " takes " + names_of(all);
    }
    if (!format.film.codec.empty()) return "--codec " + format.film.codec + " keeps no alpha";
    const bool is_picture = is_single_picture(target.kind) || is_series(target.kind);
    return target.path + " keeps no alpha: leave --transparent out, or write " +
           (is_picture ? ".png or .webp" : ".mov, .webm or .mkv");
}

// An odd film with colour of half the resolution. Matroska files have colour of the whole one then,
// where the codec can.
bool is_odd(const output_target& target, const film_codec& codec, const frame_format& format) {
    if (codec.halved == halved_colour::none || format.transparent) return false;
    const bool has_lines = codec.halved == halved_colour::both;
    const long lines = !has_lines ? 1 : (format.is_interlaced ? 4 : 2);
    if (format.width % 2 == 0 && format.height % lines == 0) return false;
    const bool can_be_whole = has_lines && &codec != &k_av1 && !format.is_interlaced;
    return target.kind != output_kind::mkv || !can_be_whole;
}

std::string size_complaint(const output_target& target, const film_codec& codec,
                           const frame_format& format) {
    const std::string holds =
        target.path + " holds " + codec.name + ", and the picture is " + size_of(format) + ": ";
    const std::string least = std::to_string(codec.least_side);
    if (std::min(format.width, format.height) < codec.least_side) {
        return holds + "it has to be " + least + "x" + least + " at least";
    }
    if (std::max(format.width, format.height) > codec.most_side) {
        const std::string most = std::to_string(codec.most_side);
        return holds + "it has to be " + most + "x" + most + " at most";
    }
    if (!is_odd(target, codec, format)) return {};
    if (codec.halved == halved_colour::across) return holds + "the width has to be even";
    return holds + (format.is_interlaced
                        ? "the width has to be even, and the height a multiple of 4"
                        : "width and height have to be even");
}

// What a GIF says of its frames is in hundredths of a second, and browsers take 1 for 10.
std::string rate_complaint(const output_target& target, const frame_format& format) {
    if (target.kind != output_kind::gif || format.rate.value() <= 50) return {};
    return target.path + " holds 50 frames a second at most: give --fps 50 or 25";
}

bool can_have_timecode(output_kind kind) {
    return kind == output_kind::mkv || kind == output_kind::mov || kind == output_kind::mp4;
}

std::string foreign_setting(const output_target& target, const frame_format& format) {
    const auto& film = format.film;
    const std::string has_none = " is for what ffmpeg writes, and " + target.path + " is not";
    if (!film.codec.empty()) return "--codec" + has_none;
    if (film.quality) return "--quality" + has_none;
    if (!film.ffmpeg_options.empty()) return "--ffmpeg-options" + has_none;
    if (!film.timecode.empty()) return "--timecode is for .mov, .mp4 and .mkv";
    const bool is_stream = target.kind == output_kind::y4m || target.kind == output_kind::matroska;
    if (format.is_interlaced && !is_stream) return "--fields is for films, not for " + target.path;
    if (format.is_interlaced && format.height % 2 != 0) return "--fields wants an even height";
    return {};
}

std::string setting_complaint(const output_target& target, const film_codec& codec,
                              const frame_format& format) {
    const auto& film = format.film;
    if (film.quality && !codec.has_quality) {
        return "--quality: " + std::string(codec.name) + " in " + target.path +
               " has none to choose";
    }
    if (format.is_interlaced && !codec.has_fields) {
        return "--fields: " + std::string(codec.name) + " in " + target.path + " has no fields";
    }
    if (format.is_interlaced && format.height % 2 != 0) return "--fields wants an even height";
    if (!film.timecode.empty() && !can_have_timecode(target.kind)) {
        return "--timecode is for .mov, .mp4 and .mkv";
    }
    if (target.pattern && !target.pattern->for_ffmpeg()) {
        return target.path + ": give %d or %05d; a number with blanks before it is for .png alone";
    }
    return {};
}

}  // namespace

const film_codec* codec_of(output_kind kind, const frame_format& format) {
    for (const auto* codec : codecs_of(kind)) {
        const bool is_asked_for = format.film.codec.empty() || format.film.codec == codec->name;
        if (is_asked_for && (codec->keeps_alpha || !format.transparent)) return codec;
    }
    return nullptr;
}

std::string film_complaint(const output_target& target, const frame_format& format) {
    if (!is_made_by_ffmpeg(target.kind)) return foreign_setting(target, format);
    const auto* const codec = codec_of(target.kind, format);
    if (codec == nullptr) return codec_complaint(target, format);
    for (const std::string& wrong :
         {size_complaint(target, *codec, format), rate_complaint(target, format),
          setting_complaint(target, *codec, format)}) {
        if (!wrong.empty()) return wrong;
    }
    return {};
}

}  // namespace pennywort::host
