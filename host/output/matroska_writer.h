// host/output/matroska_writer.h - a Matroska stream of uncompressed frames, for pipes.
#pragma once

#include <span>

#include "host/output/byte_sink.h"
#include "host/output/film_pixels.h"
#include "host/output/frame_writer.h"
#include "host/output/matroska_stream.h"
#include "host/output/stream_writers.h"

namespace pennywort::host {

// The pixels stay RGB, with straight alpha where the page has one, and the stream says so: a player
// has no matrix to guess.
class matroska_writer : public frame_writer {
public:
    matroska_writer(const frame_format& format, sink_opener open);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome hear(std::span<const float> samples) override;
    outcome finish() override;

private:
    matroska_stream m_stream;
    const sink_opener m_open;
    byte_sink m_sink;
    film_pixels m_pixels;
};

}  // namespace pennywort::host
