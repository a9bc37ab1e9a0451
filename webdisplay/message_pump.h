// message_pump.h - drives the runtime's work from a timer of the display thread.
#pragma once

#include <functional>
#include <memory>

#include "core/run/clock.h"
#include "webdisplay/main_thread_timer.h"

namespace pennywort::webdisplay {

// Belongs to the display thread.
class message_pump {
public:
    explicit message_pump(const run::monotonic_clock& clock = run::monotonic_clock::system());
    message_pump(const message_pump&) = delete;
    message_pump& operator=(const message_pump&) = delete;
    ~message_pump();

    void start_by_timer();
    void start_on_request();

    // Gates the work from now on; empty opens the gate. The predicate before it is destroyed.
    void set_can_run(std::function<bool()> can_run);

    // For the runtime's requests, which come from any thread and outlast the pump. Null when the
    // system has no timer to give.
    std::shared_ptr<main_thread_timer> timer() const { return m_timer; }

    // One step of the runtime's work, unless one is under way further up the stack.
    static void work_once();
    // Said of the step under way: it has painted a frame. Display thread.
    static void frame_painted();
    // Asks for a tick as soon as the display thread's loop gets to it, whatever the pacing. Any
    // thread; harmless where there is no pump.
    static void wake();
    // Whether the caller stands inside such a step, that is in a callback of the runtime.
    static bool inside_work();
    // Whether it stands inside a tick: in such a step, or in the predicate before it.
    static bool inside_tick();

private:
    void tick();
    void work_and_go_on();

    const run::monotonic_clock& m_clock;
    std::shared_ptr<main_thread_timer> m_timer;
    // Shared with the tick that is calling it, in case it replaces itself.
    std::shared_ptr<const std::function<bool()>> m_can_run;
};

}  // namespace pennywort::webdisplay
