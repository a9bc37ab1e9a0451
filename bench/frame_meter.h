// frame_meter.h - a renderer that counts frames the way the bare runtime's yardstick does.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "webdisplay.h"

namespace pennywort::bench {

using steady = std::chrono::steady_clock;

double ms_between(steady::time_point from, steady::time_point to);
// The value that the share `q` of `sorted` lies below; 0 if there are none.
double percentile(const std::vector<double>& sorted, double q);

// Display thread, all of it.
class frame_meter final : public cBrowserVideoRendererInterface {
public:
    frame_meter(long width, long height) : m_width(width), m_height(height) {}

    void GetSize(long& width, long& height) const override;
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;

    void count(bool on) { m_counting = on; }
    long frames() const { return m_frames; }
    // Frames whose sample of pixels differs from that of the frame before.
    long fresh() const { return m_fresh; }
    std::vector<double> sorted_intervals_ms() const;
    // Of any frame, counted or not; the clock's epoch if there was none.
    steady::time_point first_frame() const { return m_first_frame; }

private:
    const long m_width;
    const long m_height;
    bool m_counting = false;
    long m_frames = 0;
    long m_fresh = 0;
    std::uint64_t m_last_sample = 0;
    steady::time_point m_first_frame;
    steady::time_point m_last_frame;
    std::vector<double> m_intervals_ms;
};

}  // namespace pennywort::bench
