// host/output/wav_writer.h - the sound of a page alone, as a WAV file of 32 bit floats.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "host/output/byte_sink.h"
#include "host/output/frame_writer.h"

namespace pennywort::host {

// Frames are only counted by whoever shows them: the sound of a frame lasts as long as it.
class wav_writer : public frame_writer {
public:
    explicit wav_writer(std::string path) : m_path(std::move(path)) {}

    outcome begin() override;
    outcome show(const picture_ptr&) override { return outcome::fine(); }
    // Fails where the file would be longer than its own head can say, after some three hours.
    outcome hear(std::span<const float> samples) override;
    outcome finish() override;

private:
    const std::string m_path;
    byte_sink m_sink;
    std::uint32_t m_bytes = 0;  // of samples
};

}  // namespace pennywort::host
