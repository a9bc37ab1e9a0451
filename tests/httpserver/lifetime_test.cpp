// lifetime_test.cpp - the beginning and the end of servers, at every stage and from inside
// handlers.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "httpserver/server_loop.h"
#include "loam/signal.h"
#include "tests/httpserver/descriptors.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"
#include "tests/support/eventually.h"

namespace {

constexpr std::uint32_t k_bound_us = 30'000'000;  // a bound for what comes at once

TEST(Lifetime, AHundredServersLeaveNoDescriptor) {
    { const cHttpServer warm(0, k_buffer); }
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 100; ++i) {
        cHttpServer server(0, k_buffer);
        if (i % 3 == 0) server.Stop();
        if (i % 3 == 1) test_client(server.ListenPort()).send("GET");
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Lifetime, ReleasesEachHandlerOnce) {
    const auto handler = make<test_handler>("/");
    {
        cHttpServer server(0, k_buffer);
        server.InstallHandler(*handler);
        server.InstallHandler(*handler);
        EXPECT_EQ(handler->AddRef(), 4);
    }
    EXPECT_EQ(handler->Release(), 1);
}

TEST(Lifetime, StopMayComeBeforeTheThreadRunsAndManyTimes) {
    for (int i = 0; i < 50; ++i) {
        cHttpServer server(0, k_buffer);
        EXPECT_EQ(server.Stop(), 0);
        EXPECT_EQ(server.Stop(), 0);
    }
}

TEST(Lifetime, StopBeforeTheThreadServesHasNoEffect) {
    pennywort::httpserver::server_loop loop(nullptr, 0, k_buffer, cHttpServerSettings());
    loop.stop();
    loop.listen();
    loop.stop();
    const auto handler = make<test_handler>("/");
    loop.handlers().add(*handler);
    struct body final : zThreadMain {
        explicit body(pennywort::httpserver::server_loop& one) : m_loop(one) {}
        zStatus Main(std::int32_t, const char* const*) override { return m_loop.run(), 0; }
        pennywort::httpserver::server_loop& m_loop;
    } runs(loop);
    const std::unique_ptr<zThread> thread(zThread::Factory("loop", &runs, 0, 4));
    EXPECT_EQ(get(loop.listening.wait_for_port(), "/"), plain_answer("fine"));
    loop.end();
    thread->Join();
    loop.close();
}

TEST(Lifetime, AStoppedServerKeepsItsConnectionsUntilItGoes) {
    const auto handler = make<test_handler>("/");
    auto server = std::make_unique<cHttpServer>(0, k_buffer);
    server->InstallHandler(*handler);
    test_client client(server->ListenPort());
    client.send(get_request("/"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    server->Stop();
    EXPECT_FALSE(client.has_anything());
    server.reset();
    EXPECT_TRUE(client.is_ended());
}

TEST(Lifetime, StopFromInsideAHandlerLetsItFinish) {
    cHttpServer server(0, k_buffer);
    const auto handler = make<test_handler>("/", "last words", [&](zSocket*) { server.Stop(); });
    server.InstallHandler(*handler);
    EXPECT_EQ(get(server.ListenPort(), "/"), plain_answer("last words"));
}

TEST(Lifetime, AHandlerMayDeleteItsServer) {
    cHttpServer* server = new cHttpServer(0, k_buffer);
    const std::unique_ptr<zSignal> gone(zSignal::Factory());
    const auto handler = make<test_handler>("/", "last words", [&](zSocket*) {
        delete server;
        gone->Set();
    });
    server->InstallHandler(*handler);
    const std::int32_t port = server->ListenPort();
    test_client idle(port);
    test_client client(port);
    client.send(get_request("/"));
    EXPECT_EQ(client.receive_answer(), plain_answer("last words"));
    EXPECT_EQ(gone->Wait(k_bound_us), 0);
    EXPECT_TRUE(client.is_ended());
    EXPECT_TRUE(idle.is_ended());
}

// The server holds the only reference: the handler must not go while it runs.
TEST(Lifetime, AHandlerThatOnlyItsServerHoldsMayDeleteIt) {
    cHttpServer* server = new cHttpServer(0, k_buffer);
    const std::unique_ptr<zSignal> gone(zSignal::Factory());
    auto* handler = new test_handler("/", "last words", [&](zSocket*) {
        delete server;
        gone->Set();
    });
    server->InstallHandler(*handler);
    handler->Release();
    EXPECT_EQ(get(server->ListenPort(), "/"), plain_answer("last words"));
    EXPECT_EQ(gone->Wait(k_bound_us), 0);
}

// A body that deletes its server at one of its moments.
struct ending_body final : cHttpBody {
    enum moment { in_size, in_read, in_end };

    ending_body(moment when, std::function<void()> end) : m_when(when), m_end(std::move(end)) {}
    ~ending_body() override { at(in_end); }
    std::int64_t Size() override {
        at(in_size);
        return 4;
    }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        at(in_read);
        return static_cast<std::int32_t>(std::string_view("body")
                                             .substr(static_cast<std::size_t>(offset))
                                             .copy(into, static_cast<std::size_t>(size)));
    }

private:
    void at(moment now) {
        if (now != m_when) return;
        const auto end = std::exchange(m_end, {});
        if (end) end();
    }

    const moment m_when;
    std::function<void()> m_end;
};

// A body without end, of which the peer takes as little as it likes.
class endless_body final : public cHttpBody {
public:
    explicit endless_body(std::function<void()> end = {}) : m_end(std::move(end)) {}
    ~endless_body() override {
        if (m_end) m_end();
    }
    std::int64_t Size() override { return std::int64_t{1} << 40; }
    std::int32_t ReadAt(std::int64_t, char* into, std::int32_t size) override {
        std::fill_n(into, size, 'e');
        return size;
    }

private:
    const std::function<void()> m_end;
};

constexpr std::int32_t k_endless = 0x7fffffff;

TEST(Lifetime, ABodyMayDeleteItsServer) {
    for (const auto when : {ending_body::in_size, ending_body::in_read, ending_body::in_end}) {
        cHttpServer* server = new cHttpServer(0, k_buffer);
        const std::unique_ptr<zSignal> gone(zSignal::Factory());
        const auto handler = make<body_handler>("/", 4, [&] {
            return std::make_unique<ending_body>(when, [&] {
                delete server;
                gone->Set();
            });
        });
        server->InstallHandler(*handler);
        const std::int32_t port = server->ListenPort();
        test_client idle(port);
        test_client client(port);
        client.send(get_request("/"));
        ASSERT_EQ(gone->Wait(k_bound_us), 0) << when;
        EXPECT_TRUE(client.is_ended()) << when;
        EXPECT_TRUE(idle.is_ended()) << when;
    }
}

// The peer goes while its body waits for room, so that the server drops both.
TEST(Lifetime, ABodyMayDeleteItsServerWhenItsPeerHasGone) {
    cHttpServer* server = new cHttpServer(0, k_buffer);
    const std::unique_ptr<zSignal> gone(zSignal::Factory());
    const auto handler = make<body_handler>("/", k_endless, [&] {
        return std::make_unique<endless_body>([&] {
            delete server;
            gone->Set();
        });
    });
    server->InstallHandler(*handler);
    test_client idle(server->ListenPort());
    test_client client(server->ListenPort());
    client.send(get_request("/"));
    client.receive(100000);
    client.reset();
    EXPECT_EQ(gone->Wait(k_bound_us), 0);
    EXPECT_TRUE(idle.is_ended());
}

TEST(Lifetime, AServerMayBeDeletedInTheQuestionWhetherAHandlerCan) {
    class ending_handler final : public cHttpHandler {
    public:
        ending_handler(cHttpServer** server, zSignal& gone) : m_server(server), m_gone(gone) {}
        bool CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                       const char*) override {
            delete *m_server;
            m_gone.Set();
            return true;
        }

    private:
        cHttpServer** m_server;
        zSignal& m_gone;
    };
    cHttpServer* server = new cHttpServer(0, k_buffer);
    const std::unique_ptr<zSignal> gone(zSignal::Factory());
    const auto handler = make<ending_handler>(&server, *gone);
    server->InstallHandler(*handler);
    test_client client(server->ListenPort());
    client.send(get_request("/"));
    EXPECT_EQ(gone->Wait(k_bound_us), 0);
    EXPECT_TRUE(client.is_ended());
}

TEST(Lifetime, DestructionWaitsForTheHandlerThatRuns) {
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    std::atomic<bool> has_finished{false};
    const auto handler = make<test_handler>("/", "x", [&](zSocket*) {
        inside->Set();
        zThread::MicroSleep(20000);
        has_finished = true;
    });
    auto server = std::make_unique<cHttpServer>(0, k_buffer);
    server->InstallHandler(*handler);
    test_client client(server->ListenPort());
    client.send(get_request("/"));
    ASSERT_EQ(inside->Wait(k_bound_us), 0);
    server.reset();
    EXPECT_TRUE(has_finished);
}

// The thread ends before the handlers are released: a request that is under way is still offered to
// all of them.
TEST(Lifetime, ARequestIsOfferedToTheEndAlthoughItsServerGoes) {
    class declining_handler final : public cHttpHandler {
    public:
        explicit declining_handler(zSignal& inside) : m_inside(inside) {}
        bool CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                       const char*) override {
            m_inside.Set();
            zThread::MicroSleep(20000);
            return false;
        }

    private:
        zSignal& m_inside;
    };
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    const auto first = make<declining_handler>(*inside);
    const auto second = make<test_handler>("/");
    auto server = std::make_unique<cHttpServer>(0, k_buffer);
    server->InstallHandler(*first);
    server->InstallHandler(*second);
    test_client client(server->ListenPort());
    client.send(get_request("/"));
    ASSERT_EQ(inside->Wait(k_bound_us), 0);
    server.reset();
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
}

TEST(Lifetime, EndsWithConnectionsAtEveryStage) {
    const std::string request = "POST /a HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello";
    const auto handler = make<test_handler>("/");
    for (std::size_t length = 0; length <= request.size(); length += 4) {
        auto server = std::make_unique<cHttpServer>(0, k_buffer);
        server->InstallHandler(*handler);
        test_client client(server->ListenPort());
        client.send(request.substr(0, length));
        server.reset();
        EXPECT_TRUE(client.is_ended()) << length;
    }
}

TEST(Lifetime, EndsWhileAnAnswerIsOnItsWayAndWhileARefusedPeerParts) {
    cHttpServerSettings settings;
    settings.isStrict = true;
    auto server = std::make_unique<cHttpServer>(0, k_buffer, settings);
    const auto handler =
        make<body_handler>("/", k_endless, [] { return std::make_unique<endless_body>(); });
    server->InstallHandler(*handler);
    test_client answered(server->ListenPort());
    answered.send(get_request("/"));
    EXPECT_EQ(answered.receive(15), "HTTP/1.1 200 OK");
    test_client refused(server->ListenPort());
    refused.send("\r\n\r\n");
    EXPECT_EQ(refused.receive(12), "HTTP/1.1 400");
    server.reset();
    EXPECT_TRUE(refused.is_ended());
    EXPECT_TRUE(answered.is_ended());
    EXPECT_EQ(handler->AddRef(), 2);
    EXPECT_EQ(handler->Release(), 1);
}

TEST(Lifetime, HandlersMayBeInstalledWhileRequestsAreServed) {
    cHttpServer server(0, k_buffer);
    const auto added = make<test_handler>("/new", "new");
    const auto handler =
        make<test_handler>("/old", "old", [&](zSocket*) { server.InstallHandler(*added); });
    server.InstallHandler(*handler);
    EXPECT_EQ(get(server.ListenPort(), "/old"), plain_answer("old"));
    EXPECT_EQ(get(server.ListenPort(), "/new"), plain_answer("new"));
}

// Its port may soon be another test's: on an address of its own it is asked whether anybody listens
// there, and again if somebody who listens on all addresses does.
TEST(Lifetime, ACopyEndsNothingAndOutlivesItsServer) {
    constexpr const char* k_address = "127.0.0.2";
    cHttpServerSettings settings;
    settings.bindAddress = k_address;
    const auto handler = make<test_handler>("/");
    auto server = std::make_unique<cHttpServer>(0, k_buffer, settings);
    server->InstallHandler(*handler);
    const std::int32_t port = server->ListenPort();
    auto copy = std::make_unique<cHttpServer>(*server);
    EXPECT_EQ(copy->ListenPort(), port);
    cHttpServer assigned(0, k_buffer);
    assigned = *copy;
    copy->Stop();
    copy.reset();
    test_client client(port, k_address);
    client.send(get_request("/"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    server.reset();
    EXPECT_EQ(assigned.ListenPort(), port);
    EXPECT_TRUE(client.is_ended());
    EXPECT_TRUE(
        pennywort::tests::eventually([&] { return !test_client(port, k_address).is_connected(); }));
}

}  // namespace
