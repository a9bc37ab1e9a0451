// socket_events_test.cpp - the twins of discovery/socket_events.h.
#include "discovery/socket_events.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "loam/message_loop.h"
#include "tests/fakes/fake_dnssd_socket.h"
#include "tests/support/collected_traces.h"

namespace pennywort::discovery {
namespace {

class test_socket {
public:
    test_socket() { EXPECT_GE(number, 0); }
    ~test_socket() { fake_dnssd::close_socket(number); }
    test_socket(const test_socket&) = delete;
    test_socket& operator=(const test_socket&) = delete;
    const int number = fake_dnssd::open_socket();
};

void run_loop() {
    for (int i = 0; i < 20; ++i) zMessageLoop::RunOnce(1000);
}

class SocketEvents : public testing::Test {
protected:
    void make(bool goes_on = true) {
        m_events = socket_events::make([this, goes_on](int number) {
            m_arrived.push_back(number);
            if (m_to_take >= 0) fake_dnssd::take_signal(m_to_take);
            return goes_on;
        });
        ASSERT_NE(m_events, nullptr);
    }

    std::unique_ptr<socket_events> m_events;
    std::vector<int> m_arrived;
    int m_to_take = -1;
};

TEST_F(SocketEvents, TellWhichSocketItIs) {
    const test_socket first, second;
    make();
    EXPECT_TRUE(m_events->watch(first.number, 0));
    EXPECT_TRUE(m_events->watch(second.number, 254));
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{}));
    m_to_take = second.number;
    fake_dnssd::signal(second.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{254}));
    m_to_take = first.number;
    fake_dnssd::signal(first.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{254, 0}));
}

TEST_F(SocketEvents, ComeAgainForWhatIsLeft) {
    const test_socket socket;
    make();
    m_to_take = socket.number;
    fake_dnssd::signal(socket.number);
    fake_dnssd::signal(socket.number);
    EXPECT_TRUE(m_events->watch(socket.number, 3));
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{3, 3}));
}

TEST_F(SocketEvents, PassOverWhatHasNoNumber) {
    const test_socket socket;
    make();
    EXPECT_TRUE(m_events->watch(socket.number, -1));
    fake_dnssd::signal(socket.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{}));
}

TEST_F(SocketEvents, EndWithTheWatching) {
    const test_socket socket;
    make();
    EXPECT_TRUE(m_events->watch(socket.number, 3));
    m_events->unwatch(socket.number);
    fake_dnssd::signal(socket.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{}));
}

TEST_F(SocketEvents, EndWithTheObjectInTheMiddleOfACall) {
    const test_socket socket;
    int calls = 0;
    m_events = socket_events::make([&](int) {
        ++calls;
        m_events.reset();
        return true;
    });
    EXPECT_TRUE(m_events->watch(socket.number, 3));
    fake_dnssd::signal(socket.number);
    run_loop();
    EXPECT_EQ(calls, 1);
}

TEST_F(SocketEvents, DoNotSpinOnWhatIsNeverRead) {
    const test_socket socket;
    make(false);
    EXPECT_TRUE(m_events->watch(socket.number, 3));
    fake_dnssd::signal(socket.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{3}));
}

TEST_F(SocketEvents, RefuseWhatIsNoSocket) {
    make();
    const tests::collected_traces traces;
    EXPECT_FALSE(m_events->watch(-1, 3));
    EXPECT_FALSE(m_events->watch(-65537, 3));
    m_events->unwatch(-1);
}

TEST_F(SocketEvents, RefuseWhenTheirThreadHasEnded) {
    const test_socket socket;
    std::thread([this] { make(); }).join();
    const tests::collected_traces traces;
    EXPECT_FALSE(m_events->watch(socket.number, 3));
    EXPECT_NE(traces.text(), "");
    m_events.reset();
}

TEST_F(SocketEvents, MayEndOnAnotherThread) {
    const test_socket socket;
    make();
    EXPECT_TRUE(m_events->watch(socket.number, 3));
    {
        const tests::collected_traces traces;
        std::thread([this] { m_events.reset(); }).join();
    }
    fake_dnssd::signal(socket.number);
    run_loop();
    EXPECT_EQ(m_arrived, (std::vector<int>{}));
}

TEST(WaitForArrival, SaysHowItEnded) {
    const test_socket socket;
    EXPECT_EQ(wait_for_arrival(socket.number, 0), arrival::timed_out);
    EXPECT_EQ(wait_for_arrival(socket.number, 1), arrival::timed_out);
    fake_dnssd::signal(socket.number);
    EXPECT_EQ(wait_for_arrival(socket.number, 60'000), arrival::there);
    EXPECT_EQ(wait_for_arrival(-1, 60'000), arrival::failed);
    EXPECT_EQ(wait_for_arrival(-65537, 60'000), arrival::failed);
}

}  // namespace
}  // namespace pennywort::discovery
