// test_client.h - a peer of the server that does exactly what a test says, byte by byte.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "loam/socket.h"

class test_client {
public:
    // Connects at once; is_connected() says whether that went well.
    explicit test_client(std::int32_t port, const char* address = "127.0.0.1");

    bool is_connected() const { return m_is_connected; }
    // False when the connection is lost.
    bool send(std::string_view bytes);
    // Exactly `count` bytes, or fewer if the connection ends first.
    std::string receive(std::size_t count);
    // A whole answer with its head.
    std::string receive_answer();
    // Waits for the server to end the connection, and drops what comes before.
    bool is_ended();
    // Whether bytes or the end have come already; does not wait.
    bool has_anything();
    void end_sending() { m_socket->EndSending(); }
    void close() { m_socket->Close(); }
    void reset() { m_socket->Reset(); }

private:
    bool wait(std::int32_t timeout);
    bool receive_some();

    std::unique_ptr<zSocket> m_socket;
    std::string m_received;
    bool m_is_connected = false;
    bool m_has_ended = false;
};

std::string first_line(const std::string& answer);
// The body of an answer.
std::string body_of(const std::string& answer);
// Sends GET for a path on a connection of its own and gives the answer.
std::string get(std::int32_t port, std::string_view path);
std::string get_request(std::string_view path);
