// http_server_state.h - what a server has beside its stated fields. It outlives the server while
// the server's thread is still in it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "httpserver.h"
#include "httpserver/http_connections.h"

namespace pennywort {

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

// How the attempt to listen went, for threads that wait to know.
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

struct http_server_state {
    explicit http_server_state(const cHttpServerSettings& wanted, const cHttpServer* server)
        : settings(wanted), owner(server), waker(zSocketWaker::Factory()) {}

    const cHttpServerSettings settings;
    // The server that has the thread; its copies share this state.
    const cHttpServer* const owner;
    const std::unique_ptr<zSocketWaker> waker;
    listen_result listening;
    // Stays set: Stop may come before the thread has begun.
    std::atomic<bool> is_stop_wanted{false};
    // Set by a server that is destroyed on its own thread: nothing of it may be touched any more.
    bool has_ended = false;
    // Of a server that has ended.
    std::shared_ptr<http_connections> connections;

    shared_count accepted;
    shared_count refused;
    shared_count open;
    shared_count requests;
    shared_count bytes_received;
    shared_count bytes_examined;

    // Of the thread alone, kept so that a request costs no allocation.
    _zSocket_select listen_entry;
    zString path;
    zString extension;
    zString query;
    std::vector<char> piece;
    std::int64_t now = 0;  // of this round, in microseconds
    std::int64_t next_check = 0;
    std::int64_t accept_again = 0;  // 0: now
    bool is_short = false;          // of descriptors or memory, at the last attempt
    bool is_brisk = false;          // the last wait was a short one
    std::int32_t timed_stages = 0;  // connections that send pieces or are parting
};

}  // namespace pennywort
