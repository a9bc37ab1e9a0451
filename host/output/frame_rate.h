// host/output/frame_rate.h - a frame rate as an exact fraction, so that the time of the millionth
// frame is as right as that of the first.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

class frame_rate {
public:
    static constexpr double k_lowest = 1;
    static constexpr double k_highest = 240;

    // Takes "50", "12.5" and "60000/1001". The spoken names of the NTSC rates mean those rates:
    // "59.94" is 60000/1001, and so with 23.976 (23.98), 29.97, 47.95 and 119.88. Nothing for a
    // text that is no number or lies outside 1 to 240.
    static std::optional<frame_rate> parse(std::string_view text);

    std::int64_t numerator() const { return m_numerator; }
    std::int64_t denominator() const { return m_denominator; }
    double value() const;
    // "50", "25/2" or "60000/1001", in lowest terms: what parse takes.
    std::string text() const;
    // Half as many frames a second: of a film each of whose frames holds two of the page's.
    frame_rate halved() const;

    // From frame 0 to frame `number`, rounded down to the nanosecond; the error does not add up.
    std::chrono::nanoseconds time_of(std::uint64_t number) const;
    // The number of frames nearest to `seconds`, at least one.
    std::uint64_t frames_in(double seconds) const;

private:
    frame_rate(std::int64_t numerator, std::int64_t denominator);

    std::int64_t m_numerator;
    std::int64_t m_denominator;
};

}  // namespace pennywort::host
