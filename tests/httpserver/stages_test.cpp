// stages_test.cpp - a strict server and its peer part, at every stage of a request and its answer:
// the server goes, or the peer stalls.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "httpserver/server_loop.h"
#include "loam/thread.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_clock.h"

namespace {

using namespace std::chrono_literals;
using pennywort::httpserver::server_loop;
using pennywort::tests::fake_clock;

constexpr std::int32_t k_idle_ms = 400;
constexpr std::int32_t k_stalled_ms = 200;

struct stage_case {
    const char* name;
    std::string sent;
    std::string told;  // by the server before it waits
};
void PrintTo(const stage_case& one, std::ostream* out) { *out << one.name; }

std::vector<stage_case> stages() {
    const std::string head = "POST /quick HTTP/1.1\r\nHost: h\r\n";
    const std::string counted = head + "Content-Length: 5\r\n\r\n";
    const std::string expecting = head + "Expect: 100-continue\r\nContent-Length: 5\r\n\r\n";
    const std::string chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
    return {{"nothing", "", ""},
            {"method", "PO", ""},
            {"target", "POST /qui", ""},
            {"headers", head + "X-Wo", ""},
            {"blank_line", head + "X-Word: w\r\n", ""},
            {"body", counted, ""},
            {"rest_of_body", counted + "ab", ""},
            {"expect", expecting, "HTTP/1.1 100 Continue\r\n\r\n"},
            {"chunk_size", chunked + "5", ""},
            {"chunk", chunked + "5\r\nab", ""},
            {"chunk_end", chunked + "2\r\nab", ""},
            {"next_chunk", chunked + "2\r\nab\r\n", ""},
            {"trailers", chunked + "2\r\nab\r\n0\r\nX-Tr", ""}};
}

cHttpServerSettings strict_settings() {
    cHttpServerSettings wanted;
    wanted.isStrict = true;
    wanted.idleTimeoutMs = k_idle_ms;
    wanted.stallTimeoutMs = k_stalled_ms;
    return wanted;
}

class long_body final : public cHttpBody {
public:
    explicit long_body(std::atomic<bool>& has_ended) : m_has_ended(has_ended) {}
    ~long_body() override { m_has_ended = true; }
    std::int64_t Size() override { return 0x7fffffff; }
    std::int32_t ReadAt(std::int64_t, char* into, std::int32_t size) override {
        std::fill_n(into, size, 'e');
        return size;
    }

private:
    std::atomic<bool>& m_has_ended;
};

// A server whose time stands still until a test moves it.
class StagesTest : public testing::Test, public zThreadMain {
protected:
    // Not in the constructor: the thread must not see an object that is still being made.
    void SetUp() override {
        m_loop.listen();
        m_loop.handlers().add(*m_quick);
        m_loop.handlers().add(*m_pieces);
        m_thread.reset(zThread::Factory("stages", this, 0, 4));
    }
    void TearDown() override { end(); }

    zStatus Main(std::int32_t, const char* const*) override {
        m_loop.run();
        return 0;
    }
    void end() {
        if (m_thread == nullptr) return;
        m_loop.end();
        m_thread->Join();
        m_thread.reset();
        m_loop.close();
    }
    std::int32_t port() { return m_loop.listening.wait_for_port(); }
    // A round of the server at least, by a connection of its own.
    void expect_serving() { EXPECT_EQ(first_line(get(port(), "/quick")), "HTTP/1.1 200 OK"); }
    // For two rounds at least, by which a time-out would have had its effect.
    void expect_serving_on() {
        for (int i = 0; i < 3; ++i) expect_serving();
    }
    // Until the server has taken all that `client` sends.
    void bring(test_client& client, const stage_case& one) {
        const std::int64_t before = m_loop.counts().bytes_received.get();
        const auto wanted = before + static_cast<std::int64_t>(one.sent.size());
        ASSERT_TRUE(client.send(one.sent)) << one.name;
        ASSERT_EQ(client.receive(one.told.size()), one.told) << one.name;
        pennywort::tests::eventually(
            [&] { return m_loop.counts().bytes_received.get() >= wanted; });
        ASSERT_EQ(m_loop.counts().bytes_received.get(), wanted) << one.name;
    }
    // Moves time on until the server has ended `client`, or for so long that it never will.
    void expect_end_in_time(test_client& client) {
        constexpr int k_most_steps = 100;
        for (int i = 0; i < k_most_steps && !client.has_anything(); ++i) {
            m_clock.advance(100ms);
            expect_serving();
        }
        EXPECT_TRUE(client.has_anything());
    }

    fake_clock m_clock;
    std::atomic<bool> m_has_body_ended{false};
    held<test_handler> m_quick = make<test_handler>("/quick");
    held<body_handler> m_pieces = make<body_handler>(
        "/pieces", 0x7fffffff, [this] { return std::make_unique<long_body>(m_has_body_ended); });
    server_loop m_loop{nullptr, 0, k_buffer, strict_settings(), m_clock};
    std::unique_ptr<zThread> m_thread;
};

class EachStageTest : public StagesTest, public testing::WithParamInterface<stage_case> {};

TEST_P(EachStageTest, TheServerMayGo) {
    test_client client(port());
    bring(client, GetParam());
    end();
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(m_quick->calls().size(), 0u);
}

// Not before the time-out either: a peer may be slow.
TEST_P(EachStageTest, AStalledPeerIsGivenUpWhenItsTimeIsOver) {
    test_client client(port());
    // Once somebody who came later is served, this one has been accepted.
    expect_serving();
    bring(client, GetParam());
    m_clock.advance(std::chrono::milliseconds(k_idle_ms - 1));
    expect_serving_on();
    EXPECT_FALSE(client.has_anything());
    expect_end_in_time(client);
    EXPECT_TRUE(client.is_ended());
}

INSTANTIATE_TEST_SUITE_P(Strict, EachStageTest, testing::ValuesIn(stages()),
                         [](const auto& one) { return std::string(one.param.name); });

// What a handler takes for itself is not the idleness of its peer.
TEST_F(StagesTest, ASlowHandlerDoesNotMakeItsConnectionIdle) {
    const auto slow = make<test_handler>("/slow", "late", [this](zSocket*) {
        m_clock.advance(std::chrono::milliseconds(2 * k_idle_ms));
    });
    m_loop.handlers().add(*slow);
    test_client client(port());
    client.send(get_request("/slow"));
    EXPECT_EQ(body_of(client.receive_answer()), "late");
    expect_serving_on();
    EXPECT_FALSE(client.has_anything());
    client.send(get_request("/quick"));
    EXPECT_EQ(body_of(client.receive_answer()), "fine");
}

// What the peer does not take fills the system's buffers first.
TEST_F(StagesTest, APeerThatTakesNoMoreOfItsAnswerIsGivenUp) {
    test_client client(port());
    client.send("GET /pieces HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(client.receive(15), "HTTP/1.1 200 OK");
    expect_serving_on();
    EXPECT_FALSE(m_has_body_ended);
    constexpr int k_most_steps = 1000;
    for (int i = 0; i < k_most_steps && !m_has_body_ended; ++i) {
        m_clock.advance(std::chrono::milliseconds(k_stalled_ms));
        expect_serving();
    }
    EXPECT_TRUE(m_has_body_ended);
    EXPECT_TRUE(client.is_ended());
}

}  // namespace
