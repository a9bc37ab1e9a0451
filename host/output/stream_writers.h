// host/output/stream_writers.h - writers of uncompressed frames, for files and pipes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "host/output/byte_sink.h"
#include "host/output/frame_writer.h"

namespace pennywort::host {

// Opens the sink; called by begin.
using sink_opener = std::function<outcome(byte_sink&)>;

// YUV4MPEG2 with full chroma (4:4:4), BT.709 in the limited range. Transparent parts show black.
class y4m_writer : public frame_writer {
public:
    y4m_writer(const frame_format& format, sink_opener open);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome finish() override;

private:
    void convert(const picture& frame);

    const frame_format m_format;
    const sink_opener m_open;
    byte_sink m_sink;
    picture_ptr m_converted;            // what m_frame holds
    std::vector<std::uint8_t> m_frame;  // the frame's header and its planes
};

// The pixels as they were painted, premultiplied, frame after frame with nothing between.
class raw_writer : public frame_writer {
public:
    explicit raw_writer(sink_opener open);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome finish() override;

private:
    const sink_opener m_open;
    byte_sink m_sink;
};

}  // namespace pennywort::host
