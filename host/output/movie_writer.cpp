// host/output/movie_writer.cpp - see the header for the contract.
#include "host/output/movie_writer.h"

#include <filesystem>
#include <utility>

#include "host/output/pixels.h"
#include "host/system/file_path.h"
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

void append_h264(strings& to, const frame_format& format) {
    const bool even = format.width % 2 == 0 && format.height % 2 == 0;
    append(to, {"-c:v", "libx264", "-preset", "veryfast", "-crf", "16", "-pix_fmt",
                even ? "yuv420p" : "yuv444p"});
}

}  // namespace

strings movie_command(const std::string& program, output_kind kind, const std::string& path,
                      const frame_format& format) {
    strings command{program,
                    "-hide_banner",
                    "-nostdin",
                    "-loglevel",
                    "error",
                    "-y",
                    "-f",
                    "rawvideo",
                    "-pixel_format",
                    "bgra",
                    "-video_size",
                    std::to_string(format.width) + "x" + std::to_string(format.height),
                    "-framerate",
                    format.rate.text(),
                    "-i",
                    "pipe:0"};
    if (kind == output_kind::mkv && format.transparent) {
        append(command, {"-c:v", "ffv1", "-level", "3", "-slices", "4", "-slicecrc", "1",
                         "-pix_fmt", "bgra", "-f", "matroska"});
    } else if (kind == output_kind::mkv) {
        append_bt709(command);
        append_h264(command, format);
        append(command, {"-f", "matroska"});
    } else {
        append_bt709(command);
        append_prores(command, format.transparent);
        append(command, {"-f", "mov"});
    }
    // "file:" keeps a name with a colon in it from being taken for a protocol.
    command.push_back("file:" + path);
    return command;
}

movie_writer::movie_writer(output_kind kind, std::string path, const frame_format& format,
                           std::chrono::milliseconds patience)
    : m_kind(kind), m_path(std::move(path)), m_format(format), m_patience(patience) {}

outcome movie_writer::begin() {
    const std::string program = find_program("ffmpeg");
    if (program.empty()) {
        return outcome::failed(
            "ffmpeg is not there, and " + m_path +
            " needs it: install ffmpeg where PATH finds it, or write .y4m or .png");
    }
    const auto folder = file_path(m_path).parent_path();
    std::error_code error;
    if (!folder.empty() && !std::filesystem::is_directory(folder, error)) {
        return outcome::failed("cannot write " + m_path + ": there is no folder " +
                               folder.string());
    }
    const auto started = m_child.start(movie_command(program, m_kind, m_path, m_format));
    m_running = started.ok();
    return started;
}

const void* movie_writer::pixels_of(const picture_ptr& frame) {
    if (!m_format.transparent) return frame->pixels.get();
    if (frame != m_converted) {
        m_straight.resize(frame->pixel_count());
        unpremultiply(frame->pixels.get(), m_straight.data(), m_straight.size());
        m_converted = frame;
    }
    return m_straight.data();
}

outcome movie_writer::show(const picture_ptr& frame) {
    const void* pixels = pixels_of(frame);
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
    m_running = false;
    m_child.finish(std::chrono::milliseconds(0));
    return outcome::failed("ffmpeg has taken no frame for " +
                           std::to_string(m_patience.count() / 1000) + " s; " + m_path +
                           " is not whole");
}

outcome movie_writer::finish() {
    m_converted.reset();
    if (!std::exchange(m_running, false)) return outcome::fine();
    const auto report = m_child.finish(m_patience);
    if (!report.ended) return outcome::failed("ffmpeg does not end; " + m_path + " is not whole");
    if (report.status == 0) return outcome::fine();
    const std::string reason = report.last_line.empty()
                                   ? "exit status " + std::to_string(report.status)
                                   : report.last_line;
    return outcome::failed("ffmpeg could not write " + m_path + ": " + reason);
}

}  // namespace pennywort::host
