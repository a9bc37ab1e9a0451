// receive_state.h - what a socket of the system transport shares with its receive thread, which may
// outlive it by the rest of a handler.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "loam/ready_mutex.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

struct receive_state {
    std::atomic<bool> is_running{false};
    std::atomic<bool> has_owner{true};

    // Waits for who holds this.
    void lose_owner() {
        const std::lock_guard lock(m_mutex);
        has_owner = false;
    }
    void stop() {
        const std::lock_guard lock(m_mutex);
        is_running = false;
        m_stopped.notify_all();
    }
    // Waits that long, or until stop().
    void pause(std::chrono::microseconds time) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_stopped.wait_for(lock, time, [this] { return !is_running; });
    }
    // As long as this is held, socket() waits, and with it the receive thread at its begin; and so
    // does the owner's destructor.
    std::unique_lock<std::mutex> held() const { return std::unique_lock<std::mutex>(m_mutex); }
    // Send may come from any thread while another one opens or closes.
    std::shared_ptr<upgraded_socket> socket() const {
        const std::lock_guard lock(m_mutex);
        return m_socket;
    }
    void set_socket(std::shared_ptr<upgraded_socket> socket) {
        const std::lock_guard lock(m_mutex);
        m_socket.swap(socket);
    }

private:
    mutable loam::ready_mutex m_mutex;
    std::condition_variable m_stopped;
    std::shared_ptr<upgraded_socket> m_socket;
};

}  // namespace pennywort::websocket
