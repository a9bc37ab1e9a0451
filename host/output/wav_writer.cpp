// host/output/wav_writer.cpp - see the header for the contract.
#include "host/output/wav_writer.h"

#include <limits>

namespace pennywort::host {

namespace {

// Numbers are written with their lowest byte first.
std::string little_endian(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> 8 * i & 255));
    return text;
}

// Bytes of the head behind the first length that it tells.
constexpr std::uint32_t k_head_bytes = 4 + 8 + 18 + 8 + 4 + 8;

// A format other than whole numbers has a field for what it adds, which is nothing, and says how
// many samples there are.
std::string head_of(std::uint32_t bytes) {
    constexpr std::uint64_t k_float = 3;
    const std::uint64_t block = k_sound_channels * sizeof(float);
    const auto rate = static_cast<std::uint64_t>(k_sound_rate);
    return "RIFF" + little_endian(k_head_bytes + bytes, 4) + "WAVEfmt " + little_endian(18, 4) +
           little_endian(k_float, 2) + little_endian(k_sound_channels, 2) + little_endian(rate, 4) +
           little_endian(rate * block, 4) + little_endian(block, 2) + little_endian(32, 2) +
           little_endian(0, 2) + "fact" + little_endian(4, 4) + little_endian(bytes / block, 4) +
           "data" + little_endian(bytes, 4);
}

}  // namespace

outcome wav_writer::begin() {
    if (auto opened = m_sink.open(m_path); !opened.ok()) return opened;
    const std::string head = head_of(0);
    return m_sink.write(head.data(), head.size());
}

outcome wav_writer::hear(std::span<const float> samples) {
    constexpr auto k_most = std::numeric_limits<std::uint32_t>::max() - k_head_bytes;
    if (samples.size_bytes() > k_most - m_bytes) {
        return outcome::failed(m_path + " holds no more than 4 GB of sound: write .mkv");
    }
    auto written = m_sink.write(samples.data(), samples.size_bytes());
    // The head counts what is there, also behind a disk that was full.
    if (written.ok()) m_bytes += static_cast<std::uint32_t>(samples.size_bytes());
    return written;
}

outcome wav_writer::finish() {
    const std::string head = head_of(m_bytes);
    auto written = m_sink.write_again(head.data(), head.size());
    auto closed = m_sink.close_on_disk();
    return written.ok() ? closed : written;
}

}  // namespace pennywort::host
