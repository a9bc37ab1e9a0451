// tests/host/ws_session_test.cpp - how "pennywort ws" sends its lines to a server that is slow, or
// takes nothing at all.
#include "host/ws/ws_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

using std::chrono::milliseconds;

class slow_socket final : public cWebSocket {
public:
    void Open(const char*, double) override { SocketOpened(); }
    void Send(const char* text) override {
        sent_bytes += std::string(text).size();
        ++sent;
    }
    void Close() override { SocketClosed(std::nullopt, true); }
    void SendPing() override {}

    std::atomic<std::size_t> waiting{0};
    mutable std::atomic<int> looks{0};
    std::atomic<std::size_t> sent_bytes{0};
    std::atomic<int> sent{0};

protected:
    std::size_t waiting_bytes() const override {
        ++looks;
        return waiting;
    }
};

class WsSession : public testing::Test {
protected:
    WsSession() {
        m_options.pace.read_ahead = 1000;
        m_options.pace.most_waiting = 5000;
    }
    ~WsSession() override { std::fclose(m_errors); }

    ws_session& open() {
        m_session = std::make_shared<ws_session>(m_options, m_socket, m_errors, m_errors);
        m_session->open();
        return *m_session;
    }
    std::string said() const {
        std::string text(static_cast<std::size_t>(std::ftell(m_errors)), '\0');
        std::rewind(m_errors);
        text.resize(std::fread(text.data(), 1, text.size(), m_errors));
        return text;
    }

    ws_options m_options;
    std::FILE* const m_errors = std::tmpfile();
    const std::shared_ptr<slow_socket> m_socket = std::make_shared<slow_socket>();
    std::shared_ptr<ws_session> m_session;
};

// The socket would refuse it otherwise, which ends the connection.
TEST_F(WsSession, ALineGoesOutWhenItFitsBehindWhatWaits) {
    ws_session& session = open();
    m_socket->waiting = 900;
    std::thread reader([&] { session.send(std::string(4500, 'x')); });
    EXPECT_TRUE(tests::eventually([this] { return m_socket->looks > 3 || m_socket->sent > 0; }));
    EXPECT_EQ(m_socket->sent, 0);
    m_socket->waiting = 500;
    reader.join();
    EXPECT_EQ(m_socket->sent_bytes, 4500u);
    m_socket->waiting = 1000;
    session.send(std::string(4000, 'x'));
    EXPECT_EQ(m_socket->sent, 2);
}

TEST_F(WsSession, AServerThatTakesNothingEndsTheInput) {
    m_options.pace.pause = milliseconds(0);
    ws_session& session = open();
    m_socket->waiting = 1001;
    session.send("not sent");
    EXPECT_TRUE(session.wait(milliseconds(0)));
    // Also when it takes something later: nobody knows which lines were lost then.
    m_socket->waiting = 0;
    session.send("nor is this");
    session.input_ended();
    EXPECT_EQ(m_socket->sent, 0);
    session.close();
    EXPECT_EQ(session.status(), 1);
    EXPECT_EQ(said(),
              "pennywort: opened\npennywort: the server takes nothing: 1001 bytes are not sent\n"
              "pennywort: closed\n");
}

TEST_F(WsSession, AServerThatTakesNothingBehindTheInputIsLeft) {
    m_options.pace.last_pause = milliseconds(0);
    ws_session& session = open();
    m_socket->waiting = 7;
    session.send("a line");
    EXPECT_FALSE(session.wait(milliseconds(0)));
    session.input_ended();
    EXPECT_TRUE(session.wait(milliseconds(0)));
    session.close();
    EXPECT_EQ(session.status(), 1);
    EXPECT_EQ(m_socket->sent, 1);
    EXPECT_EQ(said(),
              "pennywort: opened\npennywort: the server takes nothing: 7 bytes are not sent\n"
              "pennywort: closed\n");
}

TEST(SendingPace, ALongerLineHasLessInFrontOfIt) {
    sending_pace pace;
    EXPECT_EQ(pace.may_wait_before(0), std::size_t(16) << 20);
    EXPECT_EQ(pace.may_wait_before(std::size_t(240) << 20), std::size_t(16) << 20);
    EXPECT_EQ(pace.may_wait_before(std::size_t(250) << 20), std::size_t(6) << 20);
    EXPECT_EQ(pace.may_wait_before(std::size_t(256) << 20), 0u);
    EXPECT_EQ(pace.may_wait_before(std::size_t(300) << 20), 0u);
}

TEST(TakingWatch, KnowsASlowServerFromOneThatTakesNothing) {
    taking_watch taking(milliseconds(100));
    const auto at = [](int ms) {
        return std::chrono::steady_clock::time_point(std::chrono::hours(1)) + milliseconds(ms);
    };
    EXPECT_FALSE(taking.has_stopped(50, at(0)));
    EXPECT_FALSE(taking.has_stopped(50, at(99)));
    EXPECT_FALSE(taking.has_stopped(49, at(99)));
    EXPECT_FALSE(taking.has_stopped(60, at(198)));
    EXPECT_TRUE(taking.has_stopped(49, at(199)));
}

}  // namespace
}  // namespace pennywort::host
