// scripted_peer.cpp - see the header for the contract.
#include "tests/httpclient/scripted_peer.h"

#include <algorithm>
#include <utility>

namespace {

// A bound for what comes at once, so that a test that fails does not hang.
constexpr std::int32_t k_long_ms = 30000;

bool wait_for(zSocket& socket, zSocketWaker* waker) {
    _zSocket_select entry{&socket, zSocket::k_readable, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    std::int32_t ready = 0;
    return zSocket::Select(&set, k_long_ms, &ready, waker) == 0 && ready == 1;
}

}  // namespace

bool peer_connection::receive_some() {
    if (m_is_ending || !wait_for(m_socket, &m_waker)) return false;
    char bytes[65536];
    std::int32_t count = 0;
    const zStatus status = m_socket.Receive(bytes, sizeof bytes, &count);
    if (status == zSocket::k_not_now) return true;
    m_received.append(bytes, static_cast<std::size_t>(count));
    return status == 0 && count > 0;
}

std::string peer_connection::receive_head() {
    while (m_received.find("\r\n\r\n") == std::string::npos && receive_some()) {
    }
    const std::size_t end = m_received.find("\r\n\r\n");
    return receive(end == std::string::npos ? m_received.size() : end + 4);
}

std::string peer_connection::receive(std::size_t count) {
    while (m_received.size() < count && receive_some()) {
    }
    const std::string taken = m_received.substr(0, count);
    m_received.erase(0, count);
    return taken;
}

bool peer_connection::send(std::string_view bytes) {
    constexpr std::size_t k_most = 1 << 30;
    while (!bytes.empty()) {
        const auto length = static_cast<std::int32_t>(std::min(bytes.size(), k_most));
        if (m_socket.Send(bytes.data(), length, 0, k_long_ms) != 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

void peer_connection::wait_for_end() {
    while (receive_some()) m_received.clear();
}

scripted_peer::scripted_peer(script each)
    : m_script(std::move(each)), m_listener(zSocket::Factory()), m_waker(zSocketWaker::Factory()) {
    if (m_listener->Open(0) != 0 || m_listener->BindTo("127.0.0.1", 0) != 0 ||
        m_listener->Listen(128) != 0) {
        return;
    }
    m_port = m_listener->LocalPort();
    m_thread = std::thread([this] { serve(); });
}

scripted_peer::~scripted_peer() {
    m_is_ending = true;
    m_waker->Wake();
    if (m_thread.joinable()) m_thread.join();
    for (connection_thread& each : m_threads) {
        each.waker->Wake();
        each.thread.join();
    }
}

void scripted_peer::serve() {
    while (!m_is_ending) {
        if (!wait_for(*m_listener, m_waker.get())) continue;
        zSocket* accepted = nullptr;
        if (m_listener->Accept(&accepted, 0) != 0 || accepted == nullptr) continue;
        ++m_connections;
        run(std::unique_ptr<zSocket>(accepted));
    }
}

void scripted_peer::run(std::unique_ptr<zSocket> socket) {
    connection_thread made;
    made.waker.reset(zSocketWaker::Factory());
    made.thread = std::thread([this, waker = made.waker.get(), socket = std::move(socket)] {
        peer_connection connection(*socket, *waker, m_is_ending);
        m_script(connection);
    });
    m_threads.push_back(std::move(made));
}

std::string scripted_peer::url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

scripted_peer::script answering(std::string answer) {
    return [answer = std::move(answer)](peer_connection& connection) {
        while (!connection.receive_head().empty()) connection.send(answer);
    };
}

std::string answer_with(std::string_view body, std::string_view more_headers) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
           std::string(more_headers) + "\r\n" + std::string(body);
}
