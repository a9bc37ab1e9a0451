// host/output/matroska_writer.h - a Matroska stream of uncompressed frames, for pipes.
#pragma once

#include <cstdint>
#include <string>

#include "host/output/byte_sink.h"
#include "host/output/film_pixels.h"
#include "host/output/frame_writer.h"
#include "host/output/stream_writers.h"

namespace pennywort::host {

// The pixels stay RGB, with straight alpha where the page has one, and the stream says so: a player
// has no matrix to guess. Nothing has to be written at the end, and nothing is ever gone back to,
// so that a pipe can carry it.
class matroska_writer : public frame_writer {
public:
    matroska_writer(const frame_format& format, sink_opener open);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome finish() override;

private:
    const frame_format m_format;
    const sink_opener m_open;
    byte_sink m_sink;
    std::uint64_t m_number = 0;
    film_pixels m_pixels;
};

}  // namespace pennywort::host
