// host/output/matroska_stream.cpp - see the header for the contract. Elements and their numbers are
// those of RFC 9559.
#include "host/output/matroska_stream.h"

#include <bit>
#include <chrono>

namespace pennywort::host {

namespace {

constexpr std::uint64_t k_video = 1;
constexpr std::uint64_t k_audio = 2;

// Numbers are written with their highest byte first.
std::string big_endian(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = bytes; i-- > 0;) text.push_back(static_cast<char>(value >> 8 * i & 255));
    return text;
}

// An element's number already holds its length, so that it is written as it is.
std::string id_bytes(std::uint32_t id) {
    int bytes = 1;
    while (bytes < 4 && id >> 8 * bytes != 0) ++bytes;
    return big_endian(id, bytes);
}

// A length always takes 8 bytes: the first says so by its one bit.
std::string size_bytes(std::uint64_t size) { return big_endian(size | std::uint64_t(1) << 56, 8); }

std::string element(std::uint32_t id, const std::string& content) {
    return id_bytes(id) + size_bytes(content.size()) + content;
}

std::string number(std::uint32_t id, std::uint64_t value) {
    return element(id, big_endian(value, 8));
}

// Timestamps count microseconds: no frame is further than half of one from its time, however long
// the stream lasts.
constexpr std::uint64_t k_nanoseconds_of_a_step = 1000;

std::string stream_head() {
    return element(0x1A45DFA3, number(0x4286, 1) + number(0x42F7, 1) + number(0x42F2, 4) +
                                   number(0x42F3, 8) + element(0x4282, "matroska") +
                                   number(0x4287, 4) + number(0x4285, 2));
}

std::string about_the_stream() {
    return element(0x1549A966, number(0x2AD7B1, k_nanoseconds_of_a_step) +
                                   element(0x4D80, "pennywort") + element(0x5741, "pennywort"));
}

// sRGB as it is: no matrix, the whole range.
std::string colour() {
    return element(0x55B0,
                   number(0x55B1, 0) + number(0x55B9, 2) + number(0x55BA, 13) + number(0x55BB, 1));
}

std::string video_track(const frame_format& format) {
    const auto frame_time = static_cast<std::uint64_t>(format.rate.time_of(1).count());
    // Not interlaced; or woven of two fields, the top one first.
    const std::string fields = format.is_interlaced ? number(0x9A, 1) + number(0x9D, 9)  //
                                                    : number(0x9A, 2);
    const std::string video = fields + number(0xB0, static_cast<std::uint64_t>(format.width)) +
                              number(0xBA, static_cast<std::uint64_t>(format.height)) +
                              element(0x2EB524, "BGRA") + colour();
    return element(0xAE, number(0xD7, k_video) + number(0x73C5, k_video) + number(0x83, 1) +
                             number(0x9C, 0) + number(0x23E383, frame_time) +
                             element(0x86, "V_UNCOMPRESSED") + element(0xE0, video));
}

std::string audio_track() {
    const std::string audio =
        element(0xB5, big_endian(std::bit_cast<std::uint64_t>(double(k_sound_rate)), 8)) +
        number(0x9F, k_sound_channels) + number(0x6264, 32);
    return element(0xAE, number(0xD7, k_audio) + number(0x73C5, k_audio) + number(0x83, 2) +
                             number(0x9C, 0) + element(0x86, "A_PCM/FLOAT/IEEE") +
                             element(0xE1, audio));
}

std::string tracks(const frame_format& format) {
    const std::string audio = format.has_sound ? audio_track() : std::string();
    return element(0x1654AE6B, video_track(format) + audio);
}

// A segment whose end nobody knows yet.
const std::string k_open_segment = id_bytes(0x18538067) + "\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF";

// What stands before the bytes of a frame or of some samples: a cluster of its own with its time.
std::string block_head(std::uint64_t track, std::uint64_t microseconds, std::size_t bytes) {
    // The track, the cluster's own time, a key frame.
    const std::string block{static_cast<char>(0x80 | track), '\0', '\0', '\x80'};
    const std::string head = id_bytes(0xA3) + size_bytes(block.size() + bytes) + block;
    const std::string time = number(0xE7, microseconds);
    return id_bytes(0x1F43B675) + size_bytes(time.size() + head.size() + bytes) + time + head;
}

}  // namespace

std::string matroska_stream::begin() const {
    return stream_head() + k_open_segment + about_the_stream() + tracks(m_format);
}

std::string matroska_stream::next_frame(std::size_t pixel_bytes) {
    const auto time =
        std::chrono::round<std::chrono::microseconds>(m_format.rate.time_of(m_frames++));
    return block_head(k_video, static_cast<std::uint64_t>(time.count()), pixel_bytes);
}

std::string matroska_stream::next_samples(std::size_t samples) {
    const std::uint64_t time = (m_samples * 1'000'000 + k_sound_rate / 2) / k_sound_rate;
    m_samples += samples;
    return block_head(k_audio, time, samples * k_sound_channels * sizeof(float));
}

}  // namespace pennywort::host
