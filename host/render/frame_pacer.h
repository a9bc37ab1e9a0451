// host/render/frame_pacer.h - decides which painted picture belongs to which tick of the page's
// clock.
//
// Each tick asks the page for at most one picture, but the picture does not say which tick it is
// the answer to: it comes a while later, perhaps after the next tick, or never when nothing has
// changed or the page could not follow. So a tick is decided a few ticks late, when all that
// bears on it is known. Pictures keep their order, none goes to a tick that was sent after it
// came, as few as possible are left out, and where that leaves a choice the usual time from tick
// to picture decides.
//
// No clock, no thread: the caller tells the times. Not locked.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "core/run/clock.h"
#include "host/output/picture.h"

namespace pennywort::host {

// What a tick brought.
struct tick_result {
    std::uint64_t tick = 0;      // counted from 0
    bool fresh = false;          // a picture came for it
    picture_ptr shown;           // that picture; null too if it had to be dropped when it came
    std::uint64_t left_out = 0;  // pictures that no tick was left for, found just now
};

class frame_pacer {
public:
    using time_point = run::monotonic_clock::time;
    using duration = run::monotonic_clock::time::duration;

    // How many ticks late a tick is decided at this interval: what a picture may need, and at
    // least three, since telling a late picture from a missing one takes the pictures after it.
    static std::size_t lag_for(duration interval);

    frame_pacer(duration interval, std::size_t lag);

    // A picture that came at `at`. Null stands for one that could not be kept: it takes its tick,
    // so that those around it keep theirs.
    void picture_came(time_point at, picture_ptr picture);
    // A tick is sent at `at`. Returns the result of the tick `lag` ticks before, if there is one.
    std::optional<tick_result> tick_sent(time_point at);
    // From a tick to its picture, as it was with the last ones; a guess before there were any.
    duration mean() const { return m_mean; }

private:
    struct arrival {
        time_point at;
        picture_ptr picture;
    };

    tick_result decide();
    std::uint64_t leave_out_what_has_no_tick();
    std::size_t latest_place() const;
    std::size_t likely_place(std::size_t latest) const;
    std::size_t newest_tick_at(time_point at) const;
    void learn(duration needed);

    const duration m_interval;
    const std::size_t m_lag;
    duration m_usual;                // from tick to picture, smoothed
    duration m_mean;                 // the same, which the first pictures count more in
    int m_learnt = 0;                // of them
    std::uint64_t m_decided = 0;     // ticks before m_sent.front()
    std::deque<time_point> m_sent;   // the ticks not decided yet
    std::deque<arrival> m_arrivals;  // the pictures not given out yet
};

}  // namespace pennywort::host
