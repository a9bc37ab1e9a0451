// host/output/movie_writer.cpp - see the header for the contract.
#include "host/output/movie_writer.h"

#include <filesystem>
#include <fstream>
#include <utility>

#include "host/output/byte_sink.h"
#include "host/output/film_check.h"
#include "host/output/output_file.h"
#include "host/system/file_path.h"
#include "host/system/program_search.h"

namespace pennywort::host {

namespace {

using strings = std::vector<std::string>;

// The conversion is spelled out, and so is what is written into the file: left alone, ffmpeg
// converts RGB by BT.601 whatever the size, and players guess. Of the two ways to say it ProRes
// takes the frames' (setparams), and H.264 the stream's.
constexpr const char* k_to_bt709 =
    "scale=out_color_matrix=bt709:out_range=tv:"
    "flags=bicubic+accurate_rnd+full_chroma_int+full_chroma_inp,"
    "setparams=range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709";

void append(strings& to, const strings& more) { to.insert(to.end(), more.begin(), more.end()); }

void append_bt709(strings& to) {
    append(to, {"-vf", k_to_bt709, "-colorspace", "bt709", "-color_primaries", "bt709",
                "-color_trc", "bt709", "-color_range", "tv"});
}

// A rate control of its own would make the encoder try each block several times, five times the
// work for the same picture; at a fixed quantiser it can keep up with the page.
void append_prores(strings& to, bool transparent) {
    append(to, {"-c:v", "prores_ks", "-vendor", "apl0", "-q:v", "4"});
    if (transparent) {
        append(to, {"-profile:v", "4444", "-pix_fmt", "yuva444p10le", "-alpha_bits", "16"});
    } else {
        append(to, {"-profile:v", "hq", "-pix_fmt", "yuv422p10le"});
    }
}

// ffmpeg ends with 0 even if it could not write the end of the film: its status counts only the
// frames. Then its words are the only sign.
bool tells_of_lost_bytes(const std::string& line) {
    return line.find("Error writing") != line.npos || line.find("Error closing") != line.npos ||
           line.find("No space left") != line.npos;
}

std::string said(const child_process::exit_report& report) {
    return report.last_line.empty() ? "" : "; ffmpeg says: " + report.last_line;
}

void append_h264(strings& to, const frame_format& format) {
    const bool even = format.width % 2 == 0 && format.height % 2 == 0;
    append(to, {"-c:v", "libx264", "-preset", "veryfast", "-crf", "16", "-pix_fmt",
                even ? "yuv420p" : "yuv444p"});
}

// Each line that ffmpeg says stands for itself: "Last message repeated 2 times" would hide which.
strings command_begin(const std::string& program, long width, long height, const frame_rate& rate) {
    return {program,      "-hide_banner", "-nostdin",
            "-loglevel",  "repeat+error", "-y",
            "-f",         "rawvideo",     "-pixel_format",
            "bgra",       "-video_size",  std::to_string(width) + "x" + std::to_string(height),
            "-framerate", rate.text(),    "-i",
            "pipe:0"};
}

void append_encoder(strings& to, output_kind kind, const frame_format& format) {
    if (kind == output_kind::mkv && format.transparent) {
        append(to, {"-c:v", "ffv1", "-level", "3", "-slices", "4", "-slicecrc", "1", "-pix_fmt",
                    "bgra"});
        return;
    }
    append_bt709(to);
    if (kind == output_kind::mkv) {
        append_h264(to, format);
    } else {
        append_prores(to, format.transparent);
    }
}

// One small frame, made with everything that the film needs, and thrown away.
constexpr long k_trial_side = 64;

strings trial_command(const std::string& program, output_kind kind, const frame_format& format) {
    strings command = command_begin(program, k_trial_side, k_trial_side, format.rate);
    append_encoder(command, kind, format);
    append(command, {"-f", "null", "-"});
    return command;
}

}  // namespace

strings movie_command(const std::string& program, output_kind kind, const std::string& path,
                      const frame_format& format) {
    strings command = command_begin(program, format.width, format.height, format.rate);
    append_encoder(command, kind, format);
    append(command, {"-f", kind == output_kind::mkv ? "matroska" : "mov"});
    // "file:" keeps a name with a colon in it from being taken for a protocol.
    command.push_back("file:" + path);
    return command;
}

movie_writer::movie_writer(output_kind kind, std::string path, const frame_format& format,
                           std::chrono::milliseconds patience)
    : m_kind(kind),
      m_path(std::move(path)),
      m_format(format),
      m_patience(patience),
      m_pixels(format.transparent) {}

outcome movie_writer::begin() {
    const std::string program = find_program("ffmpeg");
    if (program.empty()) {
        return outcome::failed(
            "ffmpeg is not there, and " + m_path +
            " needs it: install ffmpeg where PATH finds it, or write .y4m or .png");
    }
    if (auto possible = can_be_written(m_path); !possible.ok()) return possible;
    if (auto tried = try_encoder(program); !tried.ok()) return tried;
    auto started = m_child.start(movie_command(program, m_kind, m_path, m_format));
    m_is_running = started.ok();
    return started;
}

// Without this, an ffmpeg that lacks the encoder would fail at the first frame, long after the
// browser runtime has started and the page has loaded.
outcome movie_writer::try_encoder(const std::string& program) const {
    child_process trial;
    if (auto begun = trial.start(trial_command(program, m_kind, m_format)); !begun.ok()) {
        return begun;
    }
    const std::vector<std::uint32_t> black(k_trial_side * k_trial_side, 0xFF000000);
    trial.write(black.data(), black.size() * sizeof black[0], m_patience);
    const auto report = trial.finish(m_patience);
    if (!report.ended) return outcome::failed("ffmpeg does not end after one frame");
    return report.status == 0 ? outcome::fine() : failed_with(report);
}

outcome movie_writer::show(const picture_ptr& frame) {
    const void* pixels = m_pixels.of(frame);
    switch (m_child.write(pixels, frame->byte_count(), m_patience)) {
        case child_process::write_result::written:
            return outcome::fine();
        case child_process::write_result::stalled:
            return give_up();
        case child_process::write_result::closed:
            break;
    }
    const auto end = finish();
    return end.ok() ? outcome::failed("ffmpeg has ended before " + m_path + " was whole") : end;
}

outcome movie_writer::give_up() {
    m_is_running = false;
    m_child.finish(std::chrono::milliseconds(0));
    return outcome::failed("ffmpeg has taken no frame for " +
                           std::to_string(m_patience.count() / 1000) + " s; " + m_path +
                           " is not whole");
}

outcome movie_writer::finish() {
    m_pixels.forget();
    if (!std::exchange(m_is_running, false)) return outcome::fine();
    const auto report = m_child.finish(m_patience);
    if (!report.ended) return outcome::failed("ffmpeg does not end; " + m_path + " is not whole");
    if (report.status != 0 || tells_of_lost_bytes(report.last_line)) return failed_with(report);
    return check_film(report);
}

outcome movie_writer::failed_with(const child_process::exit_report& report) const {
    const std::string reason = report.last_line.empty()
                                   ? "exit status " + std::to_string(report.status)
                                   : report.last_line;
    return outcome::failed("ffmpeg could not write " + m_path + ": " + reason);
}

// What is no plain file, such as a named pipe, cannot be read back.
outcome movie_writer::check_film(const child_process::exit_report& report) const {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file_path(m_path), error)) {
        if (std::filesystem::exists(file_path(m_path), error)) return outcome::fine();
        return outcome::failed("ffmpeg has written no " + m_path + said(report));
    }
    const auto size = std::filesystem::file_size(file_path(m_path), error);
    std::ifstream film(file_path(m_path), std::ios::binary);
    if (error || !is_whole_film(m_kind, film, size)) {
        return outcome::failed(m_path + " is not whole: its end is missing" + said(report));
    }
    byte_sink written;
    auto opened = written.open_again(m_path);
    return opened.ok() ? written.close_on_disk() : opened;
}

}  // namespace pennywort::host
