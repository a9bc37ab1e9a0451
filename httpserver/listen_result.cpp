// httpserver/listen_result.cpp - see the header for the contract.
#include "httpserver/server_counts.h"

namespace pennywort::httpserver {

void listen_result::set(zStatus status, std::int32_t port) {
    {
        const std::lock_guard lock(m_mutex);
        m_is_known = true;
        m_status = status;
        m_port = port;
    }
    m_changed.notify_all();
}

zStatus listen_result::wait_for_status() {
    std::unique_lock lock(m_mutex);
    wait(lock);
    return m_status;
}

std::int32_t listen_result::wait_for_port() {
    std::unique_lock lock(m_mutex);
    wait(lock);
    return m_port;
}

void listen_result::wait(std::unique_lock<std::mutex>& lock) {
    m_changed.wait(lock, [this] { return m_is_known; });
}

}  // namespace pennywort::httpserver
