// scripted_peer.h - a WebSocket server that does exactly what a test says, byte by byte.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "loam/socket.h"

// A frame of a client; opcode -1: the connection has ended.
struct peer_frame {
    int opcode = -1;
    bool is_final = false;
    bool is_masked = false;
    int reserved = 0;
    std::string payload;

    int code() const;  // of a close; 1005 without one
};

class peer_connection {
public:
    // Waits no longer than until `is_ending`.
    peer_connection(zSocket* socket, const std::atomic<bool>& is_ending)
        : m_socket(socket), m_is_ending(is_ending) {}

    // The request up to its blank line.
    std::string receive_head();
    // Receives the request and agrees, with more lines in the head.
    std::string accept(std::string_view more_lines = "");
    bool send(std::string_view bytes);
    std::string receive(std::size_t count);
    peer_frame receive_frame();
    // Says goodbye and waits for the client's, or answers the client's that has come.
    void close(int code);
    // Waits until the client has gone.
    void wait_for_end();
    void reset() { m_socket->Reset(); }

private:
    bool receive_some();

    bool wait_for_bytes();

    std::unique_ptr<zSocket> m_socket;
    const std::atomic<bool>& m_is_ending;
    std::string m_received;
    bool m_has_ended = false;
};

// A script: sends each frame back, and agrees to a goodbye.
void echo(peer_connection& connection);

std::string accept_key(const std::string& request);
std::string header_of(const std::string& head, std::string_view name);

// Each connection runs the script on a thread of its own.
class scripted_peer {
public:
    using script = std::function<void(peer_connection&)>;

    explicit scripted_peer(script what, const char* address = "127.0.0.1");
    ~scripted_peer();
    scripted_peer(const scripted_peer&) = delete;
    scripted_peer& operator=(const scripted_peer&) = delete;

    std::uint16_t port() const { return m_port; }
    // "ws://127.0.0.1:PORT/path"
    std::string url(std::string_view path = "/feed") const;

private:
    void serve();

    const script m_script;
    const std::string m_address;
    std::unique_ptr<zSocket> m_listener;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_is_ending{false};
    std::vector<std::thread> m_connections;
    std::thread m_thread;
};
