// server_counts.h - what a server counts, and how its attempt to listen went.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "loam/types.h"

namespace pennywort::httpserver {

// A count that one thread changes and all may read.
class shared_count {
public:
    void add(std::int64_t more) {
        m_value.store(m_value.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }
    std::int64_t get() const { return m_value.load(std::memory_order_relaxed); }

private:
    std::atomic<std::int64_t> m_value{0};
};

struct server_counts {
    shared_count accepted;
    shared_count refused;
    shared_count open;
    shared_count requests;
    shared_count bytes_received;
    shared_count bytes_examined;
};

// For threads that wait to know.
class listen_result {
public:
    void set(zStatus status, std::int32_t port);
    zStatus wait_for_status();
    std::int32_t wait_for_port();

private:
    void wait(std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_known = false;
    zStatus m_status = 0;
    std::int32_t m_port = 0;
};

}  // namespace pennywort::httpserver
