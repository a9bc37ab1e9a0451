// tests/host/ws_session_test.cpp - how "pennywort ws" sends its lines to a server that is slow, or
// takes nothing at all.
#include "host/ws/ws_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "tests/support/eventually.h"
#include "tests/support/scratch_file.h"

namespace pennywort::host {
namespace {

using std::chrono::milliseconds;

class slow_socket : public cWebSocket {
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

// Returns when a message is out, which here is never; and it cannot be told how much is.
class blocked_socket final : public cWebSocket {
public:
    void Open(const char*, double) override { SocketOpened(); }
    void Send(const char*) override {
        is_inside = true;
        tests::eventually([this] { return is_closed.load(); });
        SignalError(Error::SendFailed);
    }
    void Close() override { is_closed = true; }
    void SendPing() override {}

    std::atomic<bool> is_inside{false};
    std::atomic<bool> is_closed{false};
};

class WsSession : public testing::Test {
protected:
    WsSession() {
        m_options.pace.read_ahead = 1000;
        m_options.pace.most_waiting = 5000;
    }
    ws_session& open() { return open_with(m_socket); }
    ws_session& open_with(const std::shared_ptr<cWebSocket>& socket) {
        m_session = std::make_shared<ws_session>(m_options, socket, m_errors.get(), m_errors.get());
        m_session->open();
        return *m_session;
    }
    // That the server was left for want of taking so many bytes.
    void expect_left(const std::string& bytes) {
        m_session->close();
        EXPECT_EQ(m_session->status(), 1);
        EXPECT_EQ(m_errors.text(), "pennywort: opened\npennywort: the server takes nothing: " +
                                       bytes + " bytes are not sent\npennywort: closed\n");
    }

    ws_options m_options;
    const tests::scratch_file m_errors;
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
    expect_left("1001");
}

TEST_F(WsSession, AServerThatTakesNothingBehindTheInputIsLeft) {
    m_options.pace.pause = milliseconds(0);
    ws_session& session = open();
    m_socket->waiting = 7;
    session.send("a line");
    EXPECT_FALSE(session.wait(milliseconds(0)));
    session.input_ended();
    EXPECT_TRUE(session.wait(milliseconds(0)));
    EXPECT_EQ(m_socket->sent, 1);
    expect_left("7");
}

TEST_F(WsSession, ALineThatATransportIsInsideForTooLongIsGivenUp) {
    m_options.transport = ws_transport::system;
    m_options.pace.pause = milliseconds(0);
    const auto socket = std::make_shared<blocked_socket>();
    ws_session& session = open_with(socket);
    std::thread reader([&] {
        session.send("a line");
        session.send("one behind it");
        session.input_ended();
    });
    EXPECT_TRUE(tests::eventually([&] { return socket->is_inside.load(); }));
    EXPECT_TRUE(session.wait(milliseconds(0)));
    expect_left("6");
    reader.join();
}

TEST_F(WsSession, ALineThatATransportIsInsideMayTakeItsTime) {
    m_options.transport = ws_transport::system;
    const auto socket = std::make_shared<blocked_socket>();
    ws_session& session = open_with(socket);
    std::thread reader([&] { session.send("a line"); });
    EXPECT_TRUE(tests::eventually([&] { return socket->is_inside.load(); }));
    EXPECT_FALSE(session.wait(milliseconds(0)));
    socket->Close();
    reader.join();
    EXPECT_EQ(session.status(), 1) << "it was not sent";
}

TEST(SendingPace, ALongLineHasItsTimeForEachPiece) {
    sending_pace pace;
    pace.pause = milliseconds(10);
    EXPECT_EQ(pace.longest_send(0), milliseconds(10));
    EXPECT_EQ(pace.longest_send((std::size_t(16) << 20) - 1), milliseconds(10));
    EXPECT_EQ(pace.longest_send(std::size_t(16) << 20), milliseconds(20));
    EXPECT_EQ(pace.longest_send(std::size_t(256) << 20), milliseconds(170));
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
