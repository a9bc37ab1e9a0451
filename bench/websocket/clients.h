// bench/websocket/clients.h - the contenders: each keeps connections to the server and plays
// ping-pong on one of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class client {
public:
    client() = default;
    client(const client&) = delete;
    client& operator=(const client&) = delete;
    virtual ~client() = default;

    // Opens one more connection, and returns when it stands. False if it does not.
    virtual bool connect(std::uint16_t port) = 0;
    // On the last connection: sends `message`, and again each time that it has come back, until
    // `time` is over. Returns how often it came back.
    virtual std::uint64_t play(const std::string& message, std::chrono::milliseconds time) = 0;
};

// Boost.Beast as its users write it: on the calling thread, or asynchronously on a thread of its
// own. Plain: as it comes. Tuned: a long message is one frame, and takes few calls of the system.
enum class beast_settings { plain, tuned };
std::unique_ptr<client> make_beast_blocking(beast_settings settings);
std::unique_ptr<client> make_beast_asynchronous(beast_settings settings);
// cWebSocket_WinHttp and cWebSocket::Factory.
std::unique_ptr<client> make_own_system();
std::unique_ptr<client> make_own_asynchronous();
