// settings_test.cpp - what a server does beyond its duty when it is asked to.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "loam/signal.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"
#include "tests/support/eventually.h"

namespace {

// A server with settings and a handler that takes everything.
struct serving {
    explicit serving(const cHttpServerSettings& settings) : server(0, k_buffer, settings) {
        server.InstallHandler(*handler);
    }

    cHttpServerCounts counts() const {
        cHttpServerCounts now;
        server.GetCounts(now);
        return now;
    }

    held<test_handler> handler = make<test_handler>("");
    cHttpServer server;
};

cHttpServerSettings strict() {
    cHttpServerSettings settings;
    settings.isStrict = true;
    return settings;
}

TEST(Settings, AStrictServerRefusesAnUnknownMethodAndCloses) {
    serving one(strict());
    test_client client(one.server.ListenPort());
    client.send("DELETE / HTTP/1.1\r\nHost: a\r\n\r\n");
    const std::string answer = client.receive_answer();
    EXPECT_EQ(first_line(answer), "HTTP/1.1 501 Not Implemented");
    EXPECT_NE(answer.find("Connection: close\r\n"), std::string::npos);
    EXPECT_TRUE(client.is_ended());
}

TEST(Settings, AStrictServerRefusesBytesThatAreNoRequest) {
    serving one(strict());
    for (const char* bytes : {"\x16\x03\x01\x02 hello", "\r\n\r\n\r\n", "GET \r\n\r\n",
                              "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: -1\r\n\r\n"}) {
        test_client client(one.server.ListenPort());
        client.send(bytes);
        EXPECT_EQ(first_line(client.receive_answer()), "HTTP/1.1 400 Bad Request") << bytes;
        EXPECT_TRUE(client.is_ended());
    }
    EXPECT_EQ(one.handler->calls().size(), 0u);
}

// Closed at once, the rest of the request would make a reset that takes the answer away.
TEST(Settings, ARefusalArrivesAlthoughThePeerIsStillSending) {
    cHttpServerSettings settings = strict();
    settings.maxRequestBytes = 1000;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send("POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 500000\r\n\r\n");
    client.send(std::string(500000, 'b'));
    EXPECT_EQ(first_line(client.receive_answer()), "HTTP/1.1 413 Content Too Large");
    EXPECT_TRUE(client.is_ended());
}

TEST(Settings, APeerThatGoesOnAfterItsRefusalIsCutOff) {
    serving one(strict());
    test_client client(one.server.ListenPort());
    client.send("<nothing sensible>\r\n");
    const std::string more(65536, 'x');
    while (client.send(more)) {
    }
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(body_of(get(one.server.ListenPort(), "/")), "fine");
}

TEST(Settings, ARefusedPeerThatStaysSilentIsGivenUp) {
    cHttpServerSettings settings = strict();
    settings.stallTimeoutMs = 20;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send("<nothing sensible>\r\n");
    EXPECT_EQ(first_line(client.receive_answer()), "HTTP/1.1 400 Bad Request");
    EXPECT_TRUE(pennywort::tests::eventually([&] { return one.counts().open == 0; }));
}

TEST(Settings, ARequestAtTheCeilingIsServedAndOneOverItIsNot) {
    const std::string head = "POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\n";
    cHttpServerSettings settings;
    settings.maxRequestBytes = static_cast<std::int32_t>(head.size()) + 10;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send(head + "0123456789");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    client.send(head + "01234567890");
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(one.handler->calls().size(), 1u);
}

// Its peer would otherwise send all of it first.
TEST(Settings, ARequestThatTellsThatItIsTooLongIsRefusedAtOnce) {
    cHttpServerSettings settings;
    settings.maxRequestBytes = 1000;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send("POST / HTTP/1.1\r\nContent-Length: 1000\r\n\r\n");
    EXPECT_TRUE(client.is_ended());
}

TEST(Settings, HeadersWithoutEndMeetTheCeiling) {
    cHttpServerSettings settings;
    settings.maxRequestBytes = 100000;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send("GET / HTTP/1.1\r\n");
    while (client.send("X-Header: and another one\r\n")) {
    }
    EXPECT_TRUE(client.is_ended());
}

// Connections that are not accepted yet, while the server is busy. How many the system adds of its
// own is its affair, but it is few.
TEST(Settings, OnlyAFewConnectionsMayWaitUnlessMoreAreWanted) {
    constexpr std::int32_t k_short_ms = 100;
    constexpr std::uint32_t k_long_us = 30'000'000;
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    const std::unique_ptr<zSignal> go(zSignal::Factory());
    const auto busy = make<test_handler>("/", "x", [&](zSocket*) {
        inside->Set();
        go->Wait(k_long_us);
    });
    cHttpServer server(0, k_buffer);
    server.InstallHandler(*busy);
    test_client client(server.ListenPort());
    client.send(get_request("/"));
    ASSERT_EQ(inside->Wait(k_long_us), 0);
    const auto port = static_cast<std::uint16_t>(server.ListenPort());
    std::vector<std::unique_ptr<zSocket>> waiting;
    zStatus status = 0;
    while (status == 0 && waiting.size() < 64) {
        waiting.emplace_back(zSocket::Factory());
        ASSERT_EQ(waiting.back()->Open(0), 0);
        status = waiting.back()->Connect("127.0.0.1", port, k_short_ms);
    }
    EXPECT_LT(waiting.size(), 16u);
    go->Set();
}

TEST(Settings, AConnectionOverTheCeilingIsClosedAndOthersLiveOn) {
    cHttpServerSettings settings;
    settings.maxConnections = 2;
    serving one(settings);
    test_client first(one.server.ListenPort());
    test_client second(one.server.ListenPort());
    for (test_client* client : {&first, &second}) {
        client->send(get_request("/"));
        EXPECT_EQ(client->receive_answer(), plain_answer("fine"));
    }
    test_client third(one.server.ListenPort());
    EXPECT_TRUE(third.is_ended());
    EXPECT_EQ(one.counts().refused, 1);
    first.send(get_request("/"));
    EXPECT_EQ(first.receive_answer(), plain_answer("fine"));
    second.close();
    EXPECT_TRUE(pennywort::tests::eventually([&] { return one.counts().open <= 1; }));
    EXPECT_EQ(get(one.server.ListenPort(), "/"), plain_answer("fine"));
}

TEST(Settings, AnIdleConnectionIsClosed) {
    cHttpServerSettings settings;
    settings.idleTimeoutMs = 20;
    serving one(settings);
    test_client client(one.server.ListenPort());
    EXPECT_TRUE(client.is_ended());
}

// A byte now and then keeps a connection from looking idle, and would keep it for ever.
TEST(Settings, AConnectionThatDribblesIsClosed) {
    cHttpServerSettings settings;
    settings.idleTimeoutMs = 50;
    serving one(settings);
    test_client client(one.server.ListenPort());
    client.send("GET / HTTP/1.1\r\nX: ");
    while (client.send("x")) zThread::MicroSleep(2000);
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(one.handler->calls().size(), 0u);
}

TEST(Settings, WithoutAnIdleTimeOutAPeerMayDribble) {
    serving one{cHttpServerSettings()};
    test_client client(one.server.ListenPort());
    for (const char byte : get_request("/slow")) {
        client.send(std::string(1, byte));
        EXPECT_EQ(get(one.server.ListenPort(), "/quick"), plain_answer("fine"));
    }
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
}

TEST(Settings, ALoopbackServerIsReachedThereAndNamesItsPort) {
    cHttpServerSettings settings;
    settings.bindAddress = "127.0.0.1";
    serving one(settings);
    EXPECT_EQ(one.server.ListenStatus(), 0);
    EXPECT_GT(one.server.ListenPort(), 0);
    EXPECT_EQ(get(one.server.ListenPort(), "/"), plain_answer("fine"));
    // Another address of the same machine.
    const test_client other(one.server.ListenPort(), "127.0.0.2");
    EXPECT_FALSE(other.is_connected());
}

TEST(Settings, AnAddressThatIsNoneIsAFailureToListen) {
    cHttpServerSettings settings;
    settings.bindAddress = "localhost";
    serving one(settings);
    EXPECT_EQ(one.server.ListenStatus(), -1);
    EXPECT_EQ(one.server.ListenPort(), 0);
}

TEST(Settings, APortThatIsNoneIsAFailureToListen) {
    for (const std::int32_t port : {-1, 65536, 70000}) {
        cHttpServer server(port, k_buffer);
        EXPECT_EQ(server.ListenStatus(), -1) << port;
    }
}

}  // namespace
