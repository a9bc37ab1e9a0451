// browser_life.h - one browser of a display, from the asking for it to its end: one state machine,
// and the wait for that end.
#pragma once

#include <cstdint>
#include <memory>

#include "loam/returned_mutex.h"
#include "loam/signal.h"

namespace pennywort::webdisplay {

enum class life_phase {
    expected,   // asked for, and not there yet
    there,      // it may be used
    abandoned,  // nobody wants it any more, and it is not there yet
    closing,    // it was asked to close
    gone
};

enum class close_step {
    abandon,  // not there yet: whoever sees it arrive closes it
    ask,      // the caller is the first, and asks the browser to close
    join,     // another caller has asked already: its end is all that is left to wait for
    nothing   // it has gone
};

// Pure: which step is whose. The one that asks is one caller only, however many close.
class browser_life {
public:
    // False when the browser is not wanted any more and must close.
    bool arrive();
    close_step close();
    // What was to be asked could not be: the next caller tries again.
    void not_asked();
    void end() { m_phase = life_phase::gone; }
    life_phase phase() const { return m_phase; }

private:
    life_phase m_phase = life_phase::expected;
};

// A browser's life as the display, its client and all who close it share it. Its end is sticky:
// everybody who waits for it, or comes later, sees it. Any thread.
class shared_life {
public:
    // `ended` is the signal of this life alone.
    explicit shared_life(std::shared_ptr<zSignal> ended);

    bool arrive();
    close_step close();
    void not_asked();
    void end();
    bool is_gone() const;
    // Waits at most so long; whether it has ended.
    bool wait(std::uint32_t microseconds);

private:
    mutable loam::returned_mutex m_lock;
    browser_life m_life;
    const std::shared_ptr<zSignal> m_ended;
};

}  // namespace pennywort::webdisplay
