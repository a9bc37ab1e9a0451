// unruly_handlers_test.cpp - handlers and bodies that throw, that close what they were given, and
// that give more than they have told.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "loam/signal.h"
#include "tests/httpserver/serving_test.h"

namespace {

constexpr std::int32_t k_size = 5;  // of the bodies, as their heads tell

// A body that reads as the test says.
class scripted_body final : public cHttpBody {
public:
    using reader = std::function<std::int32_t(char* into, std::int32_t size)>;

    explicit scripted_body(reader read) : m_read(std::move(read)) {}
    std::int64_t Size() override { return k_size; }
    std::int32_t ReadAt(std::int64_t, char* into, std::int32_t size) override {
        return m_read(into, size);
    }

private:
    const reader m_read;
};

class unsized_body final : public cHttpBody {
public:
    std::int64_t Size() override { throw 1; }
    std::int32_t ReadAt(std::int64_t, char*, std::int32_t) override { return 0; }
};

std::unique_ptr<cHttpBody> body_that(scripted_body::reader read) {
    return std::make_unique<scripted_body>(std::move(read));
}

class UnrulyHandlersTest : public ServingTest {
protected:
    UnrulyHandlersTest() : ServingTest("/after") {}

    // The peer of such a body is closed, and the others are served.
    void expect_end_by(const body_handler::maker& make_body) {
        const auto handler = make<body_handler>("/pieces", k_size, make_body);
        install(*handler);
        test_client client(port());
        client.send(get_request("/pieces"));
        EXPECT_TRUE(client.is_ended());
        expect_serving();
    }
};

// Sends the front of an answer of 5 bytes, and then fails as the test says.
class half_handler final : public cHttpHandler {
public:
    explicit half_handler(std::function<zStatus()> fail) : m_fail(std::move(fail)) {}
    bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                   const char*) override {
        return path == zString("/half");
    }
    zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        SendHeaders(socket, 5, "text/plain");
        SendString(socket, "ab");
        return m_fail();
    }

private:
    const std::function<zStatus()> m_fail;
};

// Otherwise its peer would read the next answer as the rest of this one's body.
TEST_F(UnrulyHandlersTest, OneThatFailsInTheMiddleOfAnAnswerEndsItsConnection) {
    for (const bool throws : {true, false}) {
        ServingTest::install(*make<half_handler>([throws]() -> zStatus {
            if (throws) throw std::runtime_error("no luck");
            return -1;
        }));
        test_client client(port());
        client.send(get_request("/half"));
        EXPECT_EQ(body_of(client.receive_answer()), "ab");
        EXPECT_TRUE(client.is_ended());
        expect_serving();
    }
}

// A handler may leave the rest to another thread.
TEST_F(UnrulyHandlersTest, OneThatDoesWellMaySendTheRestLater) {
    const auto half = make<half_handler>([] { return 0; });
    install(*half);
    test_client client(port());
    client.send(get_request("/half"));
    client.receive(plain_answer("ab123").size() - 3);
    expect_serving();
    EXPECT_FALSE(client.has_anything());
}

// What came first is seen by its handler before the next connection is there.
TEST_F(UnrulyHandlersTest, ConnectionsThatWaitAreAcceptedOneInEachRound) {
    constexpr std::uint32_t k_long_us = 30'000'000;
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    const std::unique_ptr<zSignal> go(zSignal::Factory());
    std::atomic<bool> was_in_time{false};
    const auto holding = make<test_handler>("/hold", "held", [&](zSocket*) {
        inside->Set();
        was_in_time = go->Wait(k_long_us) == 0;
    });
    std::atomic<std::int64_t> accepted_before{0};
    const auto looking =
        make<test_handler>("/look", "seen", [&](zSocket*) { accepted_before = counts().accepted; });
    install(*holding);
    install(*looking);
    test_client first(port());
    first.send(get_request("/hold"));
    ASSERT_EQ(inside->Wait(k_long_us), 0);
    // Both have come when the server looks next.
    test_client second(port());
    second.send(get_request("/look"));
    test_client third(port());
    third.send(get_request("/after"));
    go->Set();
    EXPECT_EQ(second.receive_answer(), plain_answer("seen"));
    EXPECT_EQ(third.receive_answer(), plain_answer("fine"));
    EXPECT_TRUE(was_in_time);
    EXPECT_EQ(accepted_before, 2);
}

TEST_F(UnrulyHandlersTest, AContentTypeWithALineEndSplitsNothing) {
    class splitting_handler final : public cHttpHandler {
    public:
        bool CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                       const char*) override {
            return path == zString("/split");
        }
        zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&,
                       const zString&, const char*) override {
            SendHeaders(socket, 0, "a/b\r\nX-Evil: 1\r\n\r\n");
            return SendAnswer(socket, 200, "a/b\r\nX-Evil: 1", "", 0);
        }
    };
    const auto splitting = make<splitting_handler>();
    install(*splitting);
    test_client client(port());
    client.send(get_request("/split"));
    for (const char* type : {"a/b  X-Evil: 1    \r\n", "a/b  X-Evil: 1\r\n"}) {
        EXPECT_NE(client.receive_answer().find(type), std::string::npos) << type;
    }
}

// Hosts have exceptions of their own.
TEST_F(UnrulyHandlersTest, OneThatThrowsWhatIsNoExceptionDoesNotEndTheServer) {
    const auto throwing = make<test_handler>("/throw", "thrown", [](zSocket*) { throw 1; });
    install(*throwing);
    EXPECT_EQ(get(port(), "/throw"), plain_answer("thrown"));
    expect_serving();
}

TEST_F(UnrulyHandlersTest, ABodyThatThrowsEndsItsConnectionOnly) {
    expect_end_by([] {
        return body_that([](char*, std::int32_t) -> std::int32_t {
            throw std::runtime_error("the disk has gone");
        });
    });
}

TEST_F(UnrulyHandlersTest, ABodyThatThrowsWhatIsNoExceptionEndsItsConnectionOnly) {
    expect_end_by([] { return body_that([](char*, std::int32_t) -> std::int32_t { throw 1; }); });
}

TEST_F(UnrulyHandlersTest, ABodyThatThrowsWhenItsSizeIsAskedEndsItsConnectionOnly) {
    expect_end_by([] { return std::make_unique<unsized_body>(); });
}

TEST_F(UnrulyHandlersTest, ABodyThatClaimsMoreThanItWasAskedForEndsItsConnectionOnly) {
    expect_end_by(
        [] { return body_that([](char*, std::int32_t size) { return size + (1 << 20); }); });
}

// A file may grow while it is served. The peer would take what is too much for the next answer.
TEST_F(UnrulyHandlersTest, ABodyThatHasGrownIsSentAsFarAsItsHeadHasTold) {
    const auto handler = make<body_handler>("/pieces", k_size, [] {
        return body_that([](char* into, std::int32_t size) {
            std::fill_n(into, size, 'g');
            return size;
        });
    });
    install(*handler);
    test_client client(port());
    client.send(get_request("/pieces"));
    EXPECT_EQ(client.receive_answer(), plain_answer("ggggg"));
    client.send(get_request("/after"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
}

// Nobody would ever be told anything of the closed socket again.
TEST_F(UnrulyHandlersTest, AConnectionThatItsHandlerClosesIsForgotten) {
    const auto closing = make<test_handler>("/close", "bye", [](zSocket* one) { one->Close(); });
    const auto resetting = make<test_handler>("/reset", "bye", [](zSocket* one) { one->Reset(); });
    install(*closing);
    install(*resetting);
    for (const char* path : {"/close", "/reset"}) {
        test_client client(port());
        client.send(get_request(path));
        EXPECT_TRUE(client.is_ended());
        wait_until_all_are_closed();
    }
    expect_serving();
}

// Nor is anything told of a socket that the handler of another connection has closed.
TEST_F(UnrulyHandlersTest, AConnectionThatAnotherOnesHandlerClosesIsForgotten) {
    zSocket* kept = nullptr;
    const auto keeping = make<test_handler>("/keep", "kept", [&](zSocket* one) { kept = one; });
    const auto closing = make<test_handler>("/end", "bye", [&](zSocket*) { kept->Close(); });
    install(*keeping);
    install(*closing);
    test_client kept_client(port());
    kept_client.send(get_request("/keep"));
    EXPECT_EQ(kept_client.receive_answer(), plain_answer("kept"));
    test_client client(port());
    client.send(get_request("/end"));
    EXPECT_EQ(client.receive_answer(), plain_answer("bye"));
    EXPECT_TRUE(kept_client.is_ended());
    wait_until_open(1);
    client.send(get_request("/after"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
}

// So many bytes of a socket that does not wait, or what has come of them within some seconds.
std::string received(zSocket& socket, std::size_t size) {
    std::string all;
    char bytes[4096];
    for (int i = 0; i < 3000 && all.size() < size; ++i) {
        std::int32_t count = 0;
        socket.Receive(bytes, sizeof bytes, &count);
        all.append(bytes, static_cast<std::size_t>(count));
        if (count == 0) zThread::MicroSleep(1000);
    }
    return all;
}

// Both have bytes in one wait; then there is nothing left for the second, which is no loss.
TEST_F(UnrulyHandlersTest, AConnectionWhoseBytesAnotherOnesHandlerTookLivesOn) {
    constexpr std::uint32_t k_long_us = 30'000'000;
    const std::string robbed = get_request("/robbed");
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    const std::unique_ptr<zSignal> go(zSignal::Factory());
    const std::unique_ptr<zSignal> is_taken(zSignal::Factory());
    zSocket* kept = nullptr;
    std::string taken;
    const auto keeping = make<test_handler>("/keep", "kept", [&](zSocket* one) { kept = one; });
    const auto waiting = make<test_handler>("/wait", "waited", [&](zSocket*) {
        inside->Set();
        go->Wait(k_long_us);
    });
    const auto taking = make<test_handler>("/take", "taken", [&](zSocket*) {
        taken = received(*kept, robbed.size());
        is_taken->Set();
    });
    install(*keeping);
    install(*waiting);
    install(*taking);
    test_client taker(port());
    taker.send(get_request("/after"));
    EXPECT_EQ(taker.receive_answer(), plain_answer("fine"));
    test_client victim(port());
    victim.send(get_request("/keep"));
    EXPECT_EQ(victim.receive_answer(), plain_answer("kept"));
    test_client last(port());
    last.send(get_request("/wait"));
    ASSERT_EQ(inside->Wait(k_long_us), 0);
    taker.send(get_request("/take"));
    victim.send(robbed);
    go->Set();
    ASSERT_EQ(is_taken->Wait(k_long_us), 0);
    EXPECT_EQ(taken, robbed);
    victim.send(get_request("/after"));
    EXPECT_EQ(victim.receive_answer(), plain_answer("fine"));
}

// The head waits for the body; when it cannot be sent in time, a body without it would be taken for
// anything.
TEST_F(UnrulyHandlersTest, ABodyNeverComesWithoutItsHead) {
    std::string filling;
    const auto fill = [&](zSocket* socket) {
        const std::string much(1 << 20, 'x');
        for (int i = 0; i < 3; ++i) {
            std::int32_t sent = 0;
            while (socket->SendSome(much.data(), 1 << 20, &sent) == 0) {
                filling.append(static_cast<std::size_t>(sent), 'x');
            }
            zThread::MicroSleep(100000);
        }
    };
    const auto make_body = [] {
        return body_that([](char* into, std::int32_t size) {
            std::fill_n(into, size, 'b');
            return size;
        });
    };
    const auto handler = make<body_handler>("/pieces", k_size, make_body, fill);
    install(*handler);
    test_client client(port());
    client.send(get_request("/pieces"));
    // Answered once the server has given the other peer up for now.
    expect_serving();
    client.end_sending();
    const std::string whole = filling + plain_answer("bbbbb");
    const std::string received = client.receive(whole.size());
    EXPECT_EQ(received == whole.substr(0, received.size()), true) << received.size();
}

}  // namespace
