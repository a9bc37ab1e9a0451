// told_transport.h - a transport of the system's kind that does what a test says, step by step.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

// What the transport is told to do, and what it was asked.
struct script {
    std::string failing;
    std::string fault;  // why, where something fails
    std::deque<std::pair<received_piece, std::string>> pieces;
    event_log asked;
    std::atomic<int> receives{0};
    // Runs when the request is given up, which is between the start of the receive thread and the
    // opened handler.
    std::function<void()> at_request_end = [] {};

    bool step(const std::string& name) {
        asked.add(name);
        return failing != name.substr(0, name.find(' '));
    }
};

class told_socket final : public upgraded_socket {
public:
    explicit told_socket(script& by) : m_script(by) {}
    ~told_socket() override { m_script.asked.add("~socket"); }

    received_piece receive(std::span<char> into) override {
        EXPECT_EQ(into.size(), 512u);
        ++m_script.receives;
        std::unique_lock lock(m_mutex);
        if (m_script.pieces.empty()) {
            m_changed.wait_for(lock, tests::k_patience, [this] { return m_is_over; });
            return {};
        }
        auto [piece, bytes] = m_script.pieces.front();
        m_script.pieces.pop_front();
        piece.size = bytes.size();
        std::copy(bytes.begin(), bytes.end(), into.begin());
        return piece;
    }
    bool send_text(std::string_view text) override {
        return m_script.step("send " + std::string(text));
    }
    bool send_binary(std::string_view) override { return m_script.step("binary"); }
    bool close(std::uint16_t code) override {
        end();
        return m_script.step("close " + std::to_string(code));
    }
    close_report query_close_status() override {
        return m_script.step("query") ? close_report{1008, "policy"} : close_report();
    }
    void drop() noexcept override { end(); }
    std::string fault() const override { return m_script.fault; }

private:
    void end() {
        const std::lock_guard lock(m_mutex);
        m_is_over = true;
        m_changed.notify_all();
    }

    script& m_script;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_over = false;
};

class told_request final : public transport_request {
public:
    explicit told_request(script& by) : m_script(by) {}
    ~told_request() override {
        m_script.asked.add("~request");
        m_script.at_request_end();
    }
    bool ask_for_upgrade() override { return m_script.step("ask"); }
    bool send() override { return m_script.step("request"); }
    bool receive_response() override { return m_script.step("response"); }
    std::shared_ptr<upgraded_socket> complete_upgrade() override {
        return m_script.step("upgrade") ? std::make_shared<told_socket>(m_script) : nullptr;
    }
    std::string fault() const override { return m_script.fault; }

private:
    script& m_script;
};

class told_connection final : public transport_connection {
public:
    explicit told_connection(script& by) : m_script(by) {}
    ~told_connection() override { m_script.asked.add("~connection"); }
    std::unique_ptr<transport_request> open_request(const std::string& path,
                                                    bool is_secure) override {
        const bool is_ok = m_script.step("get " + path + (is_secure ? " secure" : ""));
        return is_ok ? std::make_unique<told_request>(m_script) : nullptr;
    }

private:
    script& m_script;
};

class told_session final : public transport_session {
public:
    explicit told_session(script& by) : m_script(by) {}
    ~told_session() override { m_script.asked.add("~session"); }
    std::shared_ptr<transport_connection> connect(const std::string& host,
                                                  std::int32_t port) override {
        const bool is_ok = m_script.step("connect " + host + ":" + std::to_string(port));
        return is_ok ? std::make_shared<told_connection>(m_script) : nullptr;
    }

private:
    script& m_script;
};

}  // namespace pennywort::websocket
