// host/output/matroska_stream.h - the bytes of a Matroska stream of uncompressed frames, and of
// their sound where the film has some.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// Nothing has to be written at the end, and nothing is ever gone back to, so that a pipe can carry
// it.
class matroska_stream {
public:
    explicit matroska_stream(const frame_format& format) : m_format(format) {}

    // What stands before all frames.
    std::string begin() const;
    // What stands before the pixels of the next frame, which are so many bytes.
    std::string next_frame(std::size_t pixel_bytes);
    // What stands before the next samples: so many, each a float for either channel.
    std::string next_samples(std::size_t samples);

private:
    const frame_format m_format;
    std::uint64_t m_frames = 0;
    std::uint64_t m_samples = 0;
};

}  // namespace pennywort::host
