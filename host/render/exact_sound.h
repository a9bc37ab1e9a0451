// host/render/exact_sound.h - lays what a page by its own clock says along its film, sample by
// sample.
#pragma once

#include <cstdint>
#include <vector>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// Positions are samples. No clock, no thread. Not locked.
class exact_sound {
public:
    // From now on samples count: that of the page at `page` is sample `film` of the film. Those
    // before it are there already.
    void begin(std::int64_t film, std::int64_t page);

    // `frames` samples of each channel, the first of them at `page`. One channel gives both, and
    // more than two their first two.
    void hear(const float* const* samples, long channels, long frames, std::int64_t page);

    // All before sample `film`, left and right in turn, behind `out`, with silence for what never
    // came.
    void take(std::int64_t film, std::vector<float>& out);
    // The same, and nothing counts any more.
    void finish(std::int64_t film, std::vector<float>& out);

private:
    bool m_has_begun = false;
    std::int64_t m_shift = 0;  // from a page's position to its film's
    std::int64_t m_taken = 0;  // samples before m_waiting
    std::vector<float> m_waiting;
};

}  // namespace pennywort::host
