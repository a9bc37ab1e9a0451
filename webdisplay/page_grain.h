// page_grain.h - finds a moment at which a page may have its time 0: a state machine, which knows
// nothing of the browser. All moments are microseconds of the page's own monotonic clock.
//
// Pages are told the time in steps, and between two of them the browser goes over to the next at a
// point that it has chosen by lot for each. The frames that nobody sees are stamped with the
// microseconds before the page's time 0, so the point before that time must lie before them, or
// the page would take them to be a step earlier. Which is so is tried, with the page that is there:
// it is shown two frames, one at the step before and one just before the unseen ones.
#pragma once

#include <cstdint>

namespace pennywort::webdisplay {

class page_grain {
public:
    // Pages are told the time in steps of so many microseconds.
    static constexpr std::int64_t k_step_us = 100;
    // So many stamps before the page's time 0 are for frames that nobody sees.
    static constexpr int k_unseen_us = 10;

    // What a frame of a trial has shown.
    enum class verdict {
        second_frame,  // nothing yet: the trial's second frame is to be shown
        fits,          // the moment is taken, as far as can be known
        next_moment    // it is not; the one a step later is to be tried
    };

    // The first moment on the steps that lies `lead` behind `now`, at least.
    static std::int64_t first_moment(std::int64_t now, std::int64_t lead);

    // Another page is to come.
    void restart() { m_trials = 0; }
    // Without one: there is no page that could be shown frames.
    void skip() { m_trials = k_max_trials; }
    // Begins with a moment. False when there were enough: that one is taken as it is.
    bool begin();
    // The stamp of the trial's next frame.
    std::int64_t stamp(std::int64_t moment) const;
    // The page has had its turn in that frame, and was told that time; NaN where it said none.
    verdict judge(double told_ms);

private:
    static constexpr int k_max_trials = 9;

    int m_trials = 0;
    bool m_is_second = false;
    double m_first_ms = 0;
};

}  // namespace pennywort::webdisplay
