// told_managed_socket.h - a managed socket that keeps what it is asked to do.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "websocket/managed/managed_socket.h"

namespace pennywort::websocket {

class told_managed_socket final : public managed_socket {
public:
    explicit told_managed_socket(std::weak_ptr<managed_owner> to) : owner(std::move(to)) {}

    void connect_async() override {
        add("connect");
        if (at_connect) at_connect();
    }
    void close_async() override { add("close"); }
    void send_text(std::string_view text) override {
        if (text == "throw") throw std::logic_error("not open");
        add("text " + std::string(text));
    }
    void send_binary(std::string_view bytes) override {
        add("binary " + std::to_string(bytes.size()));
    }
    void ping() override { add("ping"); }

    void add(const std::string& line) { calls += (calls.empty() ? "" : " | ") + line; }

    const std::weak_ptr<managed_owner> owner;
    std::string calls;
    // The last that opening again does with a socket: nothing reads `calls`, and nothing closes,
    // before it.
    std::function<void()> at_connect;
};

}  // namespace pennywort::websocket
