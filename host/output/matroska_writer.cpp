// host/output/matroska_writer.cpp - see the header for the contract.
#include "host/output/matroska_writer.h"

#include <utility>

namespace pennywort::host {

matroska_writer::matroska_writer(const frame_format& format, sink_opener open)
    : m_stream(format), m_open(std::move(open)), m_pixels(format.transparent) {}

outcome matroska_writer::begin() {
    if (auto opened = m_open(m_sink); !opened.ok()) return opened;
    const std::string head = m_stream.begin();
    return m_sink.write(head.data(), head.size());
}

outcome matroska_writer::show(const picture_ptr& frame) {
    const std::string head = m_stream.next_frame(frame->byte_count());
    if (auto written = m_sink.write(head.data(), head.size()); !written.ok()) return written;
    return m_sink.write(m_pixels.of(frame), frame->byte_count());
}

outcome matroska_writer::hear(std::span<const float> samples) {
    const std::string head = m_stream.next_samples(samples.size() / k_sound_channels);
    if (auto written = m_sink.write(head.data(), head.size()); !written.ok()) return written;
    return m_sink.write(samples.data(), samples.size_bytes());
}

outcome matroska_writer::finish() {
    m_pixels.forget();
    return m_sink.close_on_disk();
}

}  // namespace pennywort::host
