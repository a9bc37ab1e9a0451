// scripted_peer.cpp - see the header for the contract.
#include "tests/websocket/scripted_peer.h"

#include "core/text/ascii.h"
#include "loam/base64.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/sha1.h"

namespace {

constexpr std::int32_t k_long_ms = 30000;
constexpr std::int32_t k_round_ms = 20;
constexpr int k_rounds = k_long_ms / k_round_ms;

bool wait_readable(zSocket* socket, std::int32_t timeout) {
    _zSocket_select entry{socket, zSocket::k_readable, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    std::int32_t ready = 0;
    return zSocket::Select(&set, timeout, &ready) == 0 && ready == 1;
}

std::uint64_t number_in(const std::string& bytes) {
    std::uint64_t number = 0;
    for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
    return number;
}

}  // namespace

int peer_frame::code() const {
    return payload.size() < 2 ? 1005 : static_cast<int>(number_in(payload.substr(0, 2)));
}

bool peer_connection::wait_for_bytes() {
    for (int round = 0; round < k_rounds && !m_is_ending; ++round) {
        if (wait_readable(m_socket.get(), k_round_ms)) return true;
    }
    return false;
}

bool peer_connection::receive_some() {
    if (m_has_ended || !wait_for_bytes()) return false;
    std::vector<char> bytes(65536);
    std::int32_t count = 0;
    const zStatus status =
        m_socket->Receive(bytes.data(), static_cast<std::int32_t>(bytes.size()), &count);
    if (status == zSocket::k_not_now) return true;
    m_has_ended = status != 0 || count == 0;
    m_received.append(bytes.data(), static_cast<std::size_t>(count));
    return !m_has_ended;
}

std::string peer_connection::receive(std::size_t count) {
    while (m_received.size() < count && receive_some()) {
    }
    const std::string taken = m_received.substr(0, count);
    m_received.erase(0, count);
    return taken;
}

std::string peer_connection::receive_head() {
    while (m_received.find("\r\n\r\n") == std::string::npos) {
        if (!receive_some()) return {};
    }
    return receive(m_received.find("\r\n\r\n") + 4);
}

std::string peer_connection::accept(std::string_view more_lines) {
    const std::string request = receive_head();
    send(
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        accept_key(request) + "\r\n" + std::string(more_lines) + "\r\n");
    return request;
}

bool peer_connection::send(std::string_view bytes) {
    return m_socket->Send(bytes.data(), static_cast<std::int32_t>(bytes.size()), 0, k_long_ms) == 0;
}

peer_frame peer_connection::receive_frame() {
    const std::string head = receive(2);
    if (head.size() < 2) return {};
    const auto first = static_cast<unsigned char>(head[0]);
    const auto second = static_cast<unsigned char>(head[1]);
    peer_frame frame;
    frame.opcode = first & 0x0F;
    frame.is_final = (first & 0x80) != 0;
    frame.reserved = first & 0x70;
    frame.is_masked = (second & 0x80) != 0;
    std::uint64_t size = second & 0x7F;
    if (size == 126) size = number_in(receive(2));
    if (size == 127) size = number_in(receive(8));
    const std::string mask = frame.is_masked ? receive(4) : std::string(4, '\0');
    frame.payload = receive(static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < frame.payload.size() && mask.size() == 4; ++i) {
        frame.payload[i] = static_cast<char>(frame.payload[i] ^ mask[i % 4]);
    }
    return frame;
}

void peer_connection::close(int code) {
    send(frames::close(code));
    while (true) {
        const peer_frame frame = receive_frame();
        if (frame.opcode == frames::k_close || frame.opcode == -1) return;
    }
}

void peer_connection::wait_for_end() {
    while (receive_some()) m_received.clear();
}

void echo(peer_connection& connection) {
    connection.accept();
    while (true) {
        const peer_frame frame = connection.receive_frame();
        if (frame.opcode == -1) return;
        const int last = frame.is_final ? frames::k_final : 0;
        connection.send(frames::frame(last | frame.opcode, frame.payload));
        if (frame.opcode == frames::k_close) return connection.wait_for_end();
    }
}

std::string header_of(const std::string& head, std::string_view name) {
    std::size_t at = head.find("\r\n");
    while (at != std::string::npos && at + 2 < head.size()) {
        const std::size_t end = head.find("\r\n", at + 2);
        const std::string line = head.substr(at + 2, end - at - 2);
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos &&
            pennywort::text::equal_ignoring_case(line.substr(0, colon), name)) {
            return line.substr(line.find_first_not_of(' ', colon + 1));
        }
        at = end;
    }
    return {};
}

std::string accept_key(const std::string& request) {
    const std::string digest =
        sha1(header_of(request, "Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
    char key[64];
    Base64encode(key, digest.data(), static_cast<int>(digest.size()));
    return key;
}

scripted_peer::scripted_peer(script what, const char* address)
    : m_script(std::move(what)), m_address(address), m_listener(zSocket::Factory()) {
    m_listener->Open(0);
    m_listener->BindTo(address, 0);
    m_listener->Listen(1024);
    m_port = m_listener->LocalPort();
    m_thread = std::thread([this] { serve(); });
}

scripted_peer::~scripted_peer() {
    m_is_ending = true;
    m_thread.join();
    for (std::thread& one : m_connections) one.join();
}

void scripted_peer::serve() {
    while (!m_is_ending) {
        if (!wait_readable(m_listener.get(), k_round_ms)) continue;
        zSocket* accepted = nullptr;
        if (m_listener->Accept(&accepted, 0) != 0) continue;
        m_connections.emplace_back([this, accepted] {
            peer_connection connection(accepted, m_is_ending);
            m_script(connection);
        });
    }
}

std::string scripted_peer::url(std::string_view path) const {
    const bool is_ipv6 = m_address.find(':') != std::string::npos;
    const std::string host = is_ipv6 ? "[" + m_address + "]" : m_address;
    return "ws://" + host + ":" + std::to_string(m_port) + std::string(path);
}
