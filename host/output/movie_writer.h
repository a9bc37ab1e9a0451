// host/output/movie_writer.h - writes films, and pictures that libpng does not make, by feeding
// ffmpeg, which runs as a child process.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/limits.h"
#include "host/output/film_pixels.h"
#include "host/output/frame_writer.h"
#include "host/output/matroska_stream.h"
#include "host/output/output_target.h"
#include "host/system/child_process.h"

namespace pennywort::host {

// What a movie program is given up for.
struct encoder_patience {
    // It takes nothing for so long, and does not work.
    std::chrono::milliseconds pause = k_max_encoder_pause;
    // It does not work for so long when it has all frames.
    std::chrono::milliseconds rest = k_max_encoder_rest;
    // It is not done with its trial, whether it works or not.
    std::chrono::milliseconds trial = k_max_encoder_trial;
};

class movie_writer : public frame_writer {
public:
    movie_writer(output_target target, const frame_format& format,
                 const encoder_patience& patience = {});
    movie_writer(output_kind kind, std::string path, const frame_format& format,
                 const encoder_patience& patience = {});

    // Tries the encoder with a frame of its own before the film's ffmpeg is started.
    outcome begin() override;
    // A single picture has the size of what is shown, whatever the format says: it may be all of a
    // page, or a part of it.
    outcome show(const picture_ptr& frame) override;
    outcome hear(std::span<const float> samples) override;
    // Reads back what ffmpeg has written: it ends with 0 for a film that a full disk has cut off.
    outcome finish() override;

private:
    outcome try_encoder() const;
    outcome try_format(const frame_format& format, child_process::exit_report& report) const;
    outcome start();
    outcome start_of_size(const picture& frame);
    outcome send(const void* bytes, std::size_t count);
    outcome send(const std::string& head, const void* bytes, std::size_t count);
    outcome give_up();
    outcome failed_with(const child_process::exit_report& report) const;
    outcome check_output(const child_process::exit_report& report) const;
    outcome check_count(const child_process::exit_report& report) const;
    outcome check_series(const child_process::exit_report& report) const;
    outcome check_file(const std::string& path, const child_process::exit_report& report) const;

    const output_target m_target;
    const std::string& m_path = m_target.path;
    frame_format m_format;
    const encoder_patience m_patience;
    std::string m_program;
    matroska_stream m_stream;  // of a film with sound: one pipe carries both
    child_process m_child;
    bool m_is_running = false;
    bool m_has_ended_early = false;  // by itself, before the film did
    std::uint64_t m_shown = 0;
    film_pixels m_pixels;
};

}  // namespace pennywort::host
