// host/output/png_writers.h - writers of PNG files: one picture, or one file per frame.
#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <string>

#include "host/output/frame_writer.h"
#include "host/output/output_target.h"

namespace pennywort::host {

enum class png_effort {
    small_file,
    fast,  // about a quarter of the time for about twice the bytes
};

// Straight alpha with `transparent`, else no alpha. Replaces a file of that name; after a failure
// there is none.
outcome write_png(const std::string& path, const picture& frame, bool transparent,
                  png_effort effort);

// The last frame shown.
class png_writer : public frame_writer {
public:
    png_writer(std::string path, bool transparent);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome finish() override;

private:
    const std::string m_path;
    const bool m_transparent;
    picture_ptr m_last;
};

// Every frame, numbered from 1.
class png_series_writer : public frame_writer {
public:
    png_series_writer(name_pattern pattern, bool transparent);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome finish() override;

private:
    outcome wait_until(std::size_t left);

    const name_pattern m_pattern;
    const bool m_transparent;
    const std::size_t m_at_once;
    std::uint64_t m_number = 1;
    std::deque<std::future<outcome>> m_under_way;
};

}  // namespace pennywort::host
