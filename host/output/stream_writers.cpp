// host/output/stream_writers.cpp - see the header for the contract.
#include "host/output/stream_writers.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "host/output/pixels.h"

namespace pennywort::host {

namespace {

constexpr std::string_view k_frame_header = "FRAME\n";

std::string stream_header(const frame_format& format) {
    return "YUV4MPEG2 W" + std::to_string(format.width) + " H" + std::to_string(format.height) +
           " F" + std::to_string(format.rate.numerator()) + ":" +
           std::to_string(format.rate.denominator()) + (format.is_interlaced ? " It" : " Ip") +
           " A1:1 C444 XCOLORRANGE=LIMITED\n";
}

}  // namespace

y4m_writer::y4m_writer(const frame_format& format, sink_opener open)
    : m_format(format), m_open(std::move(open)) {}

outcome y4m_writer::begin() {
    if (const auto opened = m_open(m_sink); !opened.ok()) return opened;
    const std::string header = stream_header(m_format);
    return m_sink.write(header.data(), header.size());
}

void y4m_writer::convert(const picture& frame) {
    const std::size_t plane = frame.pixel_count();
    m_frame.resize(k_frame_header.size() + 3 * plane);
    std::memcpy(m_frame.data(), k_frame_header.data(), k_frame_header.size());
    std::uint8_t* planes = m_frame.data() + k_frame_header.size();
    to_bt709(frame.pixels.get(), planes, planes + plane, planes + 2 * plane, plane);
}

outcome y4m_writer::show(const picture_ptr& frame) {
    if (frame != m_converted) {
        convert(*frame);
        m_converted = frame;
    }
    return m_sink.write(m_frame.data(), m_frame.size());
}

outcome y4m_writer::finish() {
    m_converted.reset();
    return m_sink.close_on_disk();
}

raw_writer::raw_writer(sink_opener open) : m_open(std::move(open)) {}

outcome raw_writer::begin() { return m_open(m_sink); }

outcome raw_writer::show(const picture_ptr& frame) {
    return m_sink.write(frame->pixels.get(), frame->byte_count());
}

outcome raw_writer::finish() { return m_sink.close_on_disk(); }

}  // namespace pennywort::host
