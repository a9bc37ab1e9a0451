// test_client.cpp - see the header for the contract.
#include "tests/httpserver/test_client.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

// A bound for what comes at once, so that a test that fails does not hang.
constexpr std::int32_t k_long_ms = 30000;
constexpr std::string_view k_blank_line = "\r\n\r\n";

std::size_t body_length(const std::string& head) {
    const std::size_t at = head.find("Content-Length: ");
    if (at == std::string::npos) return 0;
    return std::strtoul(head.c_str() + at + 16, nullptr, 10);
}

}  // namespace

test_client::test_client(std::int32_t port, const char* address) : m_socket(zSocket::Factory()) {
    m_is_connected = m_socket->Open(0) == 0 &&
                     m_socket->Connect(address, static_cast<std::uint16_t>(port), k_long_ms) == 0;
}

bool test_client::send(std::string_view bytes) {
    return m_socket->Send(bytes.data(), static_cast<std::int32_t>(bytes.size()), 0, k_long_ms) == 0;
}

bool test_client::wait(std::int32_t timeout) {
    _zSocket_select entry{m_socket.get(), zSocket::k_readable, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    std::int32_t ready = 0;
    return zSocket::Select(&set, timeout, &ready) == 0 && ready == 1;
}

bool test_client::receive_some() {
    if (m_has_ended || !wait(k_long_ms)) return false;
    char bytes[65536];
    std::int32_t count = 0;
    const zStatus status = m_socket->Receive(bytes, sizeof bytes, &count);
    if (status == zSocket::k_not_now) return true;
    m_has_ended = status != 0 || count == 0;
    m_received.append(bytes, static_cast<std::size_t>(count));
    return !m_has_ended;
}

std::string test_client::receive(std::size_t count) {
    while (m_received.size() < count && receive_some()) {
    }
    const std::string taken = m_received.substr(0, count);
    m_received.erase(0, count);
    return taken;
}

std::string test_client::receive_answer() {
    while (m_received.find(k_blank_line) == std::string::npos) {
        if (!receive_some()) return std::exchange(m_received, {});
    }
    const std::size_t head = m_received.find(k_blank_line) + k_blank_line.size();
    return receive(head + body_length(m_received.substr(0, head)));
}

bool test_client::is_ended() {
    while (receive_some()) {
    }
    return m_has_ended;
}

bool test_client::has_anything() { return !m_received.empty() || m_has_ended || wait(0); }

std::string first_line(const std::string& answer) { return answer.substr(0, answer.find("\r\n")); }

std::string body_of(const std::string& answer) {
    const std::size_t end = answer.find(k_blank_line);
    return end == std::string::npos ? "" : answer.substr(end + k_blank_line.size());
}

std::string get_request(std::string_view path) {
    return "GET " + std::string(path) + " HTTP/1.1\r\nHost: test\r\n\r\n";
}

std::string get(std::int32_t port, std::string_view path) {
    test_client client(port);
    client.send(get_request(path));
    return client.receive_answer();
}
