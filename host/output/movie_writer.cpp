// host/output/movie_writer.cpp - see the header for the contract.
#include "host/output/movie_writer.h"

#include <filesystem>
#include <fstream>
#include <utility>

#include "core/run/deadline.h"
#include "host/output/byte_sink.h"
#include "host/output/film_check.h"
#include "host/output/film_codecs.h"
#include "host/output/film_command.h"
#include "host/output/output_file.h"
#include "host/system/file_path.h"
#include "host/system/program_search.h"

namespace pennywort::host {

namespace {

// ffmpeg ends with 0 even if it could not write the end of the film: its status counts only the
// frames. Then its words are the only sign.
bool tells_of_lost_bytes(const std::string& line) {
    return line.find("Error writing") != line.npos || line.find("Error closing") != line.npos ||
           line.find("No space left") != line.npos;
}

// "[libx264 @ 0x55d0c8] Possible presets: ..." without what only ffmpeg's makers need, and without
// a full stop.
std::string without_address(const std::string& line) {
    const auto at = line.find(" @ 0x");
    const auto behind = line.find("] ", at);
    std::string bare = line;
    if (line.starts_with('[') && at != line.npos && behind != line.npos) {
        bare = line.substr(1, at - 1) + ": " + line.substr(behind + 2);
    }
    if (bare.ends_with('.')) bare.pop_back();
    return bare;
}

std::string said(const child_process::exit_report& report) {
    return report.last_line.empty() ? "" : "; ffmpeg says: " + report.last_line;
}

}  // namespace

movie_writer::movie_writer(output_target target, const frame_format& format,
                           const encoder_patience& patience)
    : m_target(std::move(target)),
      m_format(format),
      m_patience(patience),
      m_stream(format),
      m_pixels(format.transparent) {}

movie_writer::movie_writer(output_kind kind, std::string path, const frame_format& format,
                           const encoder_patience& patience)
    : movie_writer(output_target{kind, std::move(path), {}}, format, patience) {}

outcome movie_writer::begin() {
    m_program = find_program("ffmpeg");
    if (m_program.empty()) {
        return outcome::failed(
            "ffmpeg is not there, and " + m_path +
            " needs it: install ffmpeg where PATH finds it, or write .y4m or .png");
    }
    const std::string first = m_target.pattern ? m_target.pattern->name_of(1) : m_path;
    if (auto possible = can_be_written(first); !possible.ok()) return possible;
    if (auto tried = try_encoder(); !tried.ok()) return tried;
    return is_single_picture(m_target.kind) ? outcome::fine() : start();
}

outcome movie_writer::start() {
    auto started = m_child.start(film_command(m_program, m_target, m_format), k_film_report);
    m_is_running = started.ok();
    if (!started.ok() || !m_format.has_sound) return started;
    const std::string head = m_stream.begin();
    return send(head.data(), head.size());
}

// ffmpeg takes the bytes of a picture of another size for several pictures, or for a part of one.
outcome movie_writer::start_of_size(const picture& frame) {
    m_format.width = frame.width;
    m_format.height = frame.height;
    const std::string wrong = film_complaint(m_target, m_format);
    return wrong.empty() ? start() : outcome::failed(wrong);
}

// Without this, an ffmpeg that lacks the encoder would fail at the first frame, long after the
// browser runtime has started and the page has loaded.
outcome movie_writer::try_encoder() const {
    child_process::exit_report report;
    auto tried = try_format(m_format, report);
    if (tried.ok() || !report.ended || m_format.film.ffmpeg_options.empty()) return tried;
    frame_format ours = m_format;
    ours.film.ffmpeg_options.clear();
    child_process::exit_report without;
    if (!try_format(ours, without).ok()) return tried;
    // The first thing that it says is the cause; what follows are its consequences.
    return outcome::refused("--ffmpeg-options: ffmpeg says: " + without_address(report.first_line));
}

outcome movie_writer::try_format(const frame_format& format,
                                 child_process::exit_report& report) const {
    child_process trial;
    if (auto begun = trial.start(film_trial_command(m_program, m_target, format)); !begun.ok()) {
        return begun;
    }
    const std::string frame = film_trial_frame(format);
    const run::deadline last(m_patience.trial);
    trial.write_within(frame.data(), frame.size(), m_patience.trial);
    report = trial.finish(std::chrono::milliseconds(last.left_ms()));
    if (!report.ended) {
        return outcome::failed("ffmpeg was tried with one small frame, and does not end within " +
                               std::to_string(m_patience.trial.count() / 1000) + " s");
    }
    return report.status == 0 ? outcome::fine() : failed_with(report);
}

outcome movie_writer::show(const picture_ptr& frame) {
    const bool is_first = ++m_shown == 1;
    if (is_first && is_single_picture(m_target.kind)) {
        if (auto started = start_of_size(*frame); !started.ok()) return started;
    }
    const std::size_t size = frame->byte_count();
    if (!m_format.has_sound) return send(m_pixels.of(frame), size);
    return send(m_stream.next_frame(size), m_pixels.of(frame), size);
}

outcome movie_writer::hear(std::span<const float> samples) {
    const std::string head = m_stream.next_samples(samples.size() / k_sound_channels);
    return send(head, samples.data(), samples.size_bytes());
}

outcome movie_writer::send(const std::string& head, const void* bytes, std::size_t count) {
    auto sent = send(head.data(), head.size());
    return sent.ok() ? send(bytes, count) : sent;
}

outcome movie_writer::send(const void* bytes, std::size_t count) {
    switch (m_child.write(bytes, count, m_patience.pause)) {
        case child_process::write_result::written:
            return outcome::fine();
        case child_process::write_result::stalled:
            return give_up();
        case child_process::write_result::closed:
            break;
    }
    m_has_ended_early = m_is_running;
    const auto end = finish();
    return end.ok() ? outcome::failed("ffmpeg has ended before " + m_path + " was whole") : end;
}

outcome movie_writer::give_up() {
    m_is_running = false;
    m_child.finish(std::chrono::milliseconds(0));
    return outcome::failed("ffmpeg has taken no frame for " +
                           std::to_string(m_patience.pause.count() / 1000) + " s; " + m_path +
                           " is not whole");
}

outcome movie_writer::finish() {
    m_pixels.forget();
    if (!std::exchange(m_is_running, false)) return outcome::fine();
    // What an encoder still holds of the film may take it longer than all pauses before; so may
    // the index in front of a long one.
    const auto report = m_child.finish_at_its_pace(m_patience.rest);
    if (!report.ended) return outcome::failed("ffmpeg does not end; " + m_path + " is not whole");
    if (report.status != 0 || tells_of_lost_bytes(report.last_line)) {
        return failed_with(report);
    }
    auto checked = check_output(report);
    return checked.ok() ? check_count(report) : checked;
}

// An option of the user's may take frames away, or the whole picture. An ffmpeg that reports
// nothing is none that we know.
outcome movie_writer::check_count(const child_process::exit_report& report) const {
    if (!report.reported || *report.reported >= m_shown) return outcome::fine();
    const bool has_options = !m_format.film.ffmpeg_options.empty();
    // How many there would have been nobody knows, then.
    if (m_has_ended_early) {
        return outcome::failed("ffmpeg has written " + std::to_string(*report.reported) +
                               " frames into " + m_path + ", and takes no more" +
                               (has_options ? ": --ffmpeg-options end it" : ""));
    }
    return outcome::failed("ffmpeg has written " + std::to_string(*report.reported) + " of " +
                           std::to_string(m_shown) + " frames into " + m_path +
                           (has_options ? ": --ffmpeg-options take the others away" : ""));
}

outcome movie_writer::failed_with(const child_process::exit_report& report) const {
    const std::string reason = report.last_line.empty()
                                   ? "exit status " + std::to_string(report.status)
                                   : report.last_line;
    return outcome::failed("ffmpeg could not write " + m_path + ": " + reason);
}

outcome movie_writer::check_output(const child_process::exit_report& report) const {
    return m_target.pattern ? check_series(report) : check_file(m_path, report);
}

// Each file of a series may have been the one that the disk had no room for.
outcome movie_writer::check_series(const child_process::exit_report& report) const {
    for (std::uint64_t number = 1; number <= m_shown; ++number) {
        auto checked = check_file(m_target.pattern->name_of(number), report);
        if (!checked.ok()) return checked;
    }
    return outcome::fine();
}

// What is no plain file, such as a named pipe, cannot be read back.
outcome movie_writer::check_file(const std::string& path,
                                 const child_process::exit_report& report) const {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file_path(path), error)) {
        if (std::filesystem::exists(file_path(path), error)) return outcome::fine();
        return outcome::failed("ffmpeg has written no " + path + said(report));
    }
    const auto size = std::filesystem::file_size(file_path(path), error);
    std::ifstream film(file_path(path), std::ios::binary);
    if (error || !is_whole_film(m_target.kind, film, size)) {
        return outcome::failed(path + " is not whole: its end is missing" + said(report));
    }
    byte_sink written;
    auto opened = written.open_again(path);
    if (!opened.ok()) return opened;
    // To wait for the disk after each file of a series would take longer than to write it.
    return m_target.pattern ? written.close() : written.close_on_disk();
}

}  // namespace pennywort::host
