// faults_test.cpp - peers that break off, never read or are not there, and a port that is taken.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

#include "loam/signal.h"
#include "tests/httpserver/serving_test.h"
#include "tests/support/eventually.h"

namespace {

constexpr std::int32_t k_short_ms = 20;
constexpr std::uint32_t k_long_us = 30'000'000;  // a bound for what comes at once

class FaultsTest : public ServingTest {
protected:
    FaultsTest() : ServingTest("/after", room_for_many()) {}
};

TEST_F(FaultsTest, APeerThatResetsAtAnyByteTakesNothingWithIt) {
    const std::string request =
        "POST /after HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello and more of it";
    for (std::size_t length = 0; length <= request.size(); ++length) {
        test_client client(port());
        client.send(request.substr(0, length));
        client.reset();
    }
    expect_serving();
    wait_until_all_are_closed();
}

TEST_F(FaultsTest, APeerThatEndsAtAnyByteIsClosed) {
    const std::string request = "POST /other HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello";
    for (std::size_t length = 0; length <= request.size(); length += 3) {
        test_client client(port());
        client.send(request.substr(0, length));
        client.end_sending();
        EXPECT_TRUE(client.is_ended()) << length;
    }
    expect_serving();
}

TEST_F(FaultsTest, APeerThatOnlyEndsItsSendingStillGetsItsAnswer) {
    test_client client(port());
    client.send(get_request("/after"));
    client.end_sending();
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_TRUE(client.is_ended());
}

TEST_F(FaultsTest, APeerThatResetsWhileItIsAnsweredFailsTheHandlerOnly) {
    const std::unique_ptr<zSignal> has_reset(zSignal::Factory());
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    std::atomic<zStatus> status{0};
    const auto sending = make<test_handler>("/reset", "x", [&](zSocket* socket) {
        inside->Set();
        has_reset->Wait(k_long_us);
        for (int i = 0; i < 100000 && status == 0; ++i) {
            status = cHttpHandler::SendString(socket, "more");
        }
    });
    install(*sending);
    test_client client(port());
    client.send(get_request("/reset"));
    ASSERT_EQ(inside->Wait(k_long_us), 0);
    client.reset();
    has_reset->Set();
    wait_until_all_are_closed();
    expect_serving();
    EXPECT_EQ(status, zSocket::k_lost);
}

// The peer's time-out is the handler's to choose; the library's own of 5 s is the same code.
TEST_F(FaultsTest, APeerThatNeverReadsTimesOutAndOthersAreServed) {
    std::atomic<zStatus> status{0};
    const std::string much(1 << 20, 'x');
    const auto sending = make<test_handler>("/much", "x", [&](zSocket* socket) {
        while (status == 0) {
            status =
                socket->Send(much.data(), static_cast<std::int32_t>(much.size()), 0, k_short_ms);
        }
    });
    install(*sending);
    test_client client(port());
    client.send(get_request("/much"));
    expect_serving();
    EXPECT_EQ(status, zSocket::k_timed_out);
}

// A client that shows progress from the head on must not wait for the whole body.
TEST_F(FaultsTest, AHeadArrivesWhileItsHandlerStillWorksOnTheBody) {
    class slow_handler final : public cHttpHandler {
    public:
        explicit slow_handler(zSignal& go) : m_go(go) {}
        bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                       const char*) override {
            return path == zString("/slow");
        }
        zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&,
                       const zString&, const char*) override {
            SendHeaders(socket, 4, "text/plain");
            was_in_time = m_go.Wait(k_long_us) == 0;
            return SendString(socket, "body");
        }
        std::atomic<bool> was_in_time{false};

    private:
        zSignal& m_go;
    };
    const std::unique_ptr<zSignal> go(zSignal::Factory());
    const auto slow = make<slow_handler>(*go);
    install(*slow);
    test_client client(port());
    client.send(get_request("/slow"));
    EXPECT_EQ(client.receive(15), "HTTP/1.1 200 OK");
    go->Set();
    EXPECT_EQ(body_of(client.receive_answer()), "body");
    EXPECT_TRUE(slow->was_in_time);
}

TEST_F(FaultsTest, AHandlerThatSendsNothingLeavesItsClientWaiting) {
    class silent_handler final : public cHttpHandler {
    public:
        bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                       const char*) override {
            return path == zString("/silent");
        }
        zStatus Handle(zSocket*, std::int32_t, const zString&, const zString&, const zString&,
                       const char*) override {
            return 0;
        }
    };
    const auto silent = make<silent_handler>();
    install(*silent);
    test_client client(port());
    client.send(get_request("/silent"));
    expect_serving();
    EXPECT_FALSE(client.has_anything());
    client.send(get_request("/after"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
}

TEST_F(FaultsTest, AHandlerThatThrowsDoesNotEndTheServer) {
    const auto throwing = make<test_handler>("/throw", "thrown",
                                             [](zSocket*) { throw std::runtime_error("no luck"); });
    install(*throwing);
    EXPECT_EQ(get(port(), "/throw"), plain_answer("thrown"));
    expect_serving();
}

TEST_F(FaultsTest, APortThatIsTakenIsToldAndTheThreadLives) {
    cHttpServer second(port(), k_buffer);
    EXPECT_EQ(second.ListenStatus(), zSocket::k_address_in_use);
    EXPECT_EQ(second.ListenPort(), 0);
    second.InstallHandler(*m_handler);
    expect_serving();
    EXPECT_EQ(second.Stop(), 0);
}

// Between the two servers another program may be given the port, for once.
TEST_F(FaultsTest, APortIsFreeAgainWhenItsServerHasGone) {
    EXPECT_TRUE(pennywort::tests::eventually([&] {
        auto first = std::make_unique<cHttpServer>(0, k_buffer);
        first->InstallHandler(*m_handler);
        const std::int32_t port = first->ListenPort();
        // A connection that the server ends is what the system remembers the port for. Bytes that
        // it had not read yet would make that end a reset, which leaves nothing to remember.
        test_client client(port);
        client.send(get_request("/after"));
        EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
        first.reset();
        EXPECT_TRUE(client.is_ended());
        cHttpServer again(port, k_buffer);
        return again.ListenStatus() == 0;
    }));
}

TEST_F(FaultsTest, ABufferOfOneByteServesToo) {
    for (const std::int32_t size : {1, 0, -5}) {
        cHttpServer tiny(0, size);
        tiny.InstallHandler(*m_handler);
        EXPECT_EQ(get(tiny.ListenPort(), "/after"), plain_answer("fine")) << size;
    }
}

}  // namespace
