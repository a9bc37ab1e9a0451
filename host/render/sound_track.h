// host/render/sound_track.h - lays the packets of a page's sound along the time of its film.
//
// The runtime says of each packet when it is to be heard, in whole milliseconds and by the clock of
// an output that need not run as fast as ours. So packets of one stream follow each other without a
// seam, and only what lies far from its place, or moves away from it for long, is put right.
//
// No clock, no thread: the caller tells the times. Not locked.
#pragma once

#include <cstdint>
#include <vector>

#include "core/run/clock.h"
#include "host/output/frame_writer.h"

namespace pennywort::host {

class sound_track {
public:
    using time_point = run::monotonic_clock::time;

    // From now on packets count. What is heard at `at` belongs to sample `position` of the film;
    // those before it are there already.
    void begin(std::int64_t position, time_point at);
    // The packets that count end with this sample, as far as they come.
    void end_at(std::int64_t position) { m_end = position; }

    // `frames` samples of each channel, the first of them heard at `at`. One channel gives both,
    // and more than two their first two.
    void packet(const float* const* samples, long channels, long frames, time_point at);
    // The page is silent. The next packet stands where its own time says.
    void pause() { m_is_placed = false; }

    // What there is up to sample `position`, left and right in turn, behind `out`. A page that says
    // nothing is silent, which is certain only some time afterwards.
    void take(std::int64_t position, std::vector<float>& out);
    // All of it, with silence for what never came.
    void finish(std::int64_t position, std::vector<float>& out);
    // Whether packets come that may still bring something before sample `position`.
    bool is_missing(std::int64_t position) const { return m_is_placed && written() < position; }

private:
    std::int64_t place_of(time_point at) const;
    std::int64_t written() const;
    void append_silence(std::int64_t samples);
    void append(const float* const* samples, long channels, long from, long frames);
    void hand_out(std::int64_t position, std::vector<float>& out);

    std::int64_t m_begin = 0;
    time_point m_begin_time{};
    bool m_has_begun = false;
    std::int64_t m_end = 0;    // no sample from here on
    bool m_is_placed = false;  // the last packet's end is where the next one begins
    double m_drift = 0;        // samples by which packets come too late, smoothed
    std::int64_t m_taken = 0;  // samples before m_waiting
    std::vector<float> m_waiting;
};

}  // namespace pennywort::host
