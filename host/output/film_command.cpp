// host/output/film_command.cpp - see the header for the contract.
#include "host/output/film_command.h"

#include <string_view>

#include "host/output/film_codecs.h"
#include "host/output/matroska_stream.h"
#include "host/output/word_list.h"

namespace pennywort::host {

namespace {

// Frames without times of their own have the rate that -r says: by another option of the format it
// would be a guess of ffmpeg's, which takes 119.88 for 120. Each line that ffmpeg says stands for
// itself: "Last message repeated 2 times" would hide which. Each of the stream's tracks is
// announced in its head: to look at more of it would only take time.
strings command_begin(const std::string& program, const frame_format& format) {
    strings command = {program, "-hide_banner", "-nostdin", "-loglevel", "repeat+error", "-y"};
    if (format.has_sound) {
        append(command, {"-analyzeduration", "0", "-probesize", "32", "-f", "matroska", "-i",
                         "pipe:0", "-r", format.rate.text()});
    } else {
        append(command, {"-f", "rawvideo", "-pixel_format", "bgra", "-video_size",
                         std::to_string(format.width) + "x" + std::to_string(format.height), "-r",
                         format.rate.text(), "-i", "pipe:0"});
    }
    return command;
}

// The conversion is spelled out, and so is what is written into the file: left alone, ffmpeg
// converts RGB by BT.601 whatever the size, and players guess. Of the two ways to say it ProRes
// takes the frames' (setparams), and H.264 the stream's. The lines of colour of half the resolution
// belong to their fields.
std::string to_bt709(bool is_interlaced) {
    const std::string fields = is_interlaced ? ":interl=1" : "";
    const std::string mode = is_interlaced ? "field_mode=tff:" : "";
    return "scale=out_color_matrix=bt709:out_range=tv" + fields +
           ":flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp,setparams=" + mode +
           "range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709";
}

void append_bt709(strings& to, bool is_interlaced) {
    append(to, {"-vf", to_bt709(is_interlaced), "-colorspace", "bt709", "-color_primaries", "bt709",
                "-color_trc", "bt709", "-color_range", "tv"});
    if (is_interlaced) append(to, {"-flags", "+ildct+ilme", "-top", "1"});
}

// Each frame gets a palette of its own: one for all would want all frames in memory.
std::string to_palette(bool transparent) {
    const std::string clear = transparent ? "1" : "0";
    return "split[a][b];[a]palettegen=stats_mode=single:reserve_transparent=" + clear +
           "[p];[b][p]paletteuse=new=1:alpha_threshold=128";
}

void append_colours(strings& to, output_kind kind, const film_codec& codec,
                    const frame_format& format) {
    const std::string_view name = codec.name;
    const bool is_interlaced = format.is_interlaced;
    if (kind == output_kind::gif) {
        append(to, {"-vf", to_palette(format.transparent)});
    } else if (name == "jpeg") {
        append(to, {"-vf", "scale=out_color_matrix=bt601:out_range=pc:flags=accurate_rnd"});
    } else if (name == "webp" && !format.transparent) {
        append(to, {"-vf", "format=bgr24"});
    } else if (name == "ffv1" && is_interlaced) {
        append(to, {"-vf", "setparams=field_mode=tff", "-top", "1"});
    } else if (name != "ffv1" && name != "webp") {
        append_bt709(to, is_interlaced);
    }
}

// As it came, in 24 bits, where a film is for an edit; else as browsers know it.
void append_sound(strings& to, output_kind kind) {
    if (kind == output_kind::mp4) {
        append(to, {"-c:a", "aac", "-b:a", "256k"});
    } else if (kind == output_kind::webm) {
        append(to, {"-c:a", "libopus", "-b:a", "192k"});
    } else {
        append(to, {"-c:a", "pcm_s24le"});
    }
}

void append_encoder(strings& to, output_kind kind, const frame_format& format) {
    const auto* const codec = codec_of(kind, format);
    append_colours(to, kind, *codec, format);
    codec->append(to, kind, format);
    if (format.has_sound) append_sound(to, kind);
    if (!format.film.timecode.empty()) append(to, {"-timecode", format.film.timecode});
}

// "file:" keeps a name with a colon in it from being taken for a protocol. Matroska would have
// numbers by chance in it, and no two runs the same file.
void append_file(strings& to, const output_target& target) {
    switch (target.kind) {
        case output_kind::mkv:
            append(to, {"-fflags", "+bitexact", "-f", "matroska"});
            break;
        case output_kind::mov:
            append(to, {"-f", "mov"});
            break;
        case output_kind::mp4:
            // The index in front of the frames: a browser then plays what it has loaded so far.
            append(to, {"-f", "mp4", "-movflags", "+faststart"});
            break;
        case output_kind::webm:
            append(to, {"-fflags", "+bitexact", "-f", "webm"});
            break;
        case output_kind::gif:
            append(to, {"-f", "gif"});
            break;
        default:
            append(to, {"-f", "image2"});
            append(to, target.pattern ? strings{"-start_number", "1"} : strings{"-update", "1"});
    }
}

// One small frame, and some silence.
constexpr long k_trial_side = 64;
constexpr std::size_t k_trial_samples = k_sound_rate / 10;

frame_format trial_format_of(const frame_format& format) {
    frame_format trial = format;
    trial.width = trial.height = k_trial_side;
    return trial;
}

std::string file_of(const output_target& target) {
    return "file:" + (target.pattern ? target.pattern->for_ffmpeg().value_or("") : target.path);
}

}  // namespace

strings film_command(const std::string& program, const output_target& target,
                     const frame_format& format) {
    strings command = command_begin(program, format);
    append_encoder(command, target.kind, format);
    append_file(command, target);
    append(command, format.film.ffmpeg_options);
    // After the user's options: ffmpeg takes the last one.
    append(command, {"-progress", "pipe:2", file_of(target)});
    return command;
}

strings film_trial_command(const std::string& program, const output_target& target,
                           const frame_format& format) {
    const frame_format trial = trial_format_of(format);
    strings command = command_begin(program, trial);
    append_encoder(command, target.kind, trial);
    append(command, format.film.ffmpeg_options);
    append(command, {"-f", "null", "-"});
    return command;
}

std::string film_trial_frame(const frame_format& format) {
    const frame_format trial = trial_format_of(format);
    std::string pixels;
    for (int i = 0; i < k_trial_side * k_trial_side; ++i) pixels.append("\0\0\0\xFF", 4);
    if (!format.has_sound) return pixels;
    matroska_stream stream(trial);
    const std::string silence(k_trial_samples * k_sound_channels * sizeof(float), '\0');
    return stream.begin() + stream.next_frame(pixels.size()) + pixels +
           stream.next_samples(k_trial_samples) + silence;
}

}  // namespace pennywort::host
