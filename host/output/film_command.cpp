// host/output/film_command.cpp - see the header for the contract.
#include "host/output/film_command.h"

#include <string_view>

#include "host/output/film_codecs.h"

namespace pennywort::host {

namespace {

using strings = std::vector<std::string>;

void append(strings& to, const strings& more) { to.insert(to.end(), more.begin(), more.end()); }

// Each line that ffmpeg says stands for itself: "Last message repeated 2 times" would hide which.
strings command_begin(const std::string& program, long width, long height, const frame_rate& rate) {
    return {program,      "-hide_banner", "-nostdin",
            "-loglevel",  "repeat+error", "-y",
            "-f",         "rawvideo",     "-pixel_format",
            "bgra",       "-video_size",  std::to_string(width) + "x" + std::to_string(height),
            "-framerate", rate.text(),    "-i",
            "pipe:0"};
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

void append_encoder(strings& to, output_kind kind, const frame_format& format) {
    const auto* const codec = codec_of(kind, format);
    append_colours(to, kind, *codec, format);
    codec->append(to, kind, format);
    if (!format.film.timecode.empty()) append(to, {"-timecode", format.film.timecode});
}

// "file:" keeps a name with a colon in it from being taken for a protocol.
void append_file(strings& to, const output_target& target) {
    switch (target.kind) {
        case output_kind::mkv:
            append(to, {"-f", "matroska"});
            break;
        case output_kind::mov:
            append(to, {"-f", "mov"});
            break;
        case output_kind::mp4:
            // The index in front of the frames: a browser then plays what it has loaded so far.
            append(to, {"-f", "mp4", "-movflags", "+faststart"});
            break;
        case output_kind::webm:
            append(to, {"-f", "webm"});
            break;
        case output_kind::gif:
            append(to, {"-f", "gif"});
            break;
        default:
            append(to, {"-f", "image2"});
            append(to, target.pattern ? strings{"-start_number", "1"} : strings{"-update", "1"});
    }
}

std::string file_of(const output_target& target) {
    return "file:" + (target.pattern ? target.pattern->for_ffmpeg().value_or("") : target.path);
}

}  // namespace

strings film_command(const std::string& program, const output_target& target,
                     const frame_format& format) {
    strings command = command_begin(program, format.width, format.height, format.rate);
    append_encoder(command, target.kind, format);
    append_file(command, target);
    append(command, format.film.ffmpeg_options);
    command.push_back(file_of(target));
    return command;
}

strings film_trial_command(const std::string& program, const output_target& target,
                           const frame_format& format) {
    strings command = command_begin(program, k_film_trial_side, k_film_trial_side, format.rate);
    append_encoder(command, target.kind, format);
    append(command, format.film.ffmpeg_options);
    append(command, {"-f", "null", "-"});
    return command;
}

}  // namespace pennywort::host
