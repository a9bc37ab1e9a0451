// main_thread_timer.h - a timer of the display thread's own message loop, which drives the runtime.
// Twins: main_thread_timer_win.cpp, main_thread_timer_linux.cpp.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace pennywort::webdisplay {

class main_thread_timer {
public:
    // Prepares a timer that will call `tick` from the calling thread's message loop. Null when the
    // system gives none. Requests made before `start` are kept.
    static std::shared_ptr<main_thread_timer> make(std::function<void()> tick);

    main_thread_timer() = default;
    main_thread_timer(const main_thread_timer&) = delete;
    main_thread_timer& operator=(const main_thread_timer&) = delete;
    // Stops first.
    virtual ~main_thread_timer() = default;

    // Ticks every `period_ms`. Display thread.
    virtual void start_periodic(int period_ms) = 0;
    // Ticks when asked for by `request`, and `idle_ms` after the last tick if nobody asked. Display
    // thread.
    virtual void start_on_request(int idle_ms) = 0;
    // No tick comes after this, not even one that is due. Display thread; harmless if not started.
    virtual void stop() = 0;

    // Asks for one tick in that long, or earlier: a request never puts off one made before it.
    // Any thread, also before start and after stop.
    virtual void request_in(std::chrono::nanoseconds delay) = 0;
    // The same in the runtime's unit, of which it may name any number.
    void request(std::int64_t delay_ms) {
        request_in(std::chrono::milliseconds(std::clamp<std::int64_t>(delay_ms, 0, 60'000)));
    }
    // Puts off what is asked for from now on until `us` have passed; what has been asked for
    // already stands. Display thread.
    virtual void rest(std::int64_t us) = 0;
};

}  // namespace pennywort::webdisplay
