// reconnect.h - when a connection that was lost is opened again, and the wait for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "loam/ready_mutex.h"

namespace pennywort::websocket {

// How long to wait before the next attempt. No clock.
class back_off {
public:
    back_off() = default;
    // `most` attempts in a row; -1: without end, 0: none. Waits in seconds.
    back_off(std::int32_t most, double first_wait, double longest_wait);

    // Nothing when there was the last attempt.
    std::optional<std::chrono::milliseconds> next();
    // A connection has come about: the next loss begins anew.
    void reset() { m_attempts = 0; }

private:
    std::int32_t m_most = 0;
    double m_first = 0;
    double m_longest = 0;
    std::int32_t m_attempts = 0;
};

// One piece of work for later, on a thread that ends with it.
class delayed_work {
public:
    delayed_work() = default;
    delayed_work(const delayed_work&) = delete;
    delayed_work& operator=(const delayed_work&) = delete;
    ~delayed_work() { cancel(); }

    // In place of what was waiting. `work` holds no lock of this when it runs. Throws without a
    // thread.
    void start(std::chrono::milliseconds wait, std::function<void()> work);
    // What has not begun does not begin any more. Waits for nothing.
    void cancel() noexcept;

private:
    struct ticket {
        // Waits that long, unless it is cancelled meanwhile.
        bool is_cancelled_within(std::chrono::milliseconds time) {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, time, [this] { return is_cancelled; });
        }

        loam::ready_mutex mutex;
        std::condition_variable changed;
        bool is_cancelled = false;
    };

    loam::ready_mutex m_mutex;
    std::shared_ptr<ticket> m_ticket;
};

}  // namespace pennywort::websocket
