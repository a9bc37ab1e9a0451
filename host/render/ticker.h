// host/render/ticker.h - calls a function at each tick of a frame rate, on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "core/run/clock.h"
#include "host/output/frame_rate.h"

namespace pennywort::host {

// Which ticks are due. Tick n is due at start + n / rate, computed from the start each time, so
// that no tick inherits the lateness of another.
class tick_schedule {
public:
    using time_point = run::monotonic_clock::time;

    tick_schedule(const frame_rate& rate, time_point start) : m_rate(rate), m_start(start) {}

    time_point next() const { return m_start + m_rate.time_of(m_passed); }
    // How many ticks have become due since the last call.
    std::uint64_t take_due(time_point now);

private:
    const frame_rate m_rate;
    const time_point m_start;
    std::uint64_t m_passed = 0;
};

class ticker {
public:
    using time_point = tick_schedule::time_point;
    // `due` ticks, one unless the machine was so late that others have become due meanwhile. Called
    // on the ticker's thread.
    using tick_function = std::function<void(time_point now, std::uint64_t due)>;

    // The first tick comes at once.
    ticker(const frame_rate& rate, tick_function function,
           const run::monotonic_clock& clock = run::monotonic_clock::system());
    // Waits for a call that is under way; none comes afterwards.
    ~ticker();
    ticker(const ticker&) = delete;
    ticker& operator=(const ticker&) = delete;

private:
    void run();

    const run::monotonic_clock& m_clock;
    tick_schedule m_schedule;
    const tick_function m_function;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_is_stopping = false;
    std::thread m_thread;
};

}  // namespace pennywort::host
