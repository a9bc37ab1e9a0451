// managed_contract_test.cpp - what every binding of the asynchronous transport does, against
// servers that do as they are told, right or wrong. Each test is run with each binding.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/fault_cases.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/managed_fixture.h"
#include "tests/websocket/scripted_peer.h"
#include "websocket/managed/spare_text.h"

namespace {

using pennywort::tests::eventually;

class ManagedContract : public ManagedFixture {};

TEST_F(ManagedContract, OpensTalksAndCloses) {
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Send("hello");
    ASSERT_TRUE(m_events.wait_for(2));
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for(3));
    EXPECT_EQ(m_events.text(), "opened | message hello | closed clean");
    m_socket->Send("nothing happens");
    EXPECT_EQ(m_events.lines().size(), 3u);
}

TEST_F(ManagedContract, AsksAsTheStandardHasIt) {
    std::string head;
    peer_frame text;
    const scripted_peer peer([&](peer_connection& connection) {
        head = connection.accept();
        text = connection.receive_frame();
        connection.close(1000);
    });
    m_socket->SetOpenedHandler([](const std::shared_ptr<cWebSocket>& self) { self->Send("t"); });
    m_socket->Open(peer.url("/a?b=c").c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("closed clean"));
    EXPECT_TRUE(head.starts_with("GET /a?b=c HTTP/1.1\r\n")) << head;
    EXPECT_EQ(header_of(head, "Host"), "127.0.0.1:" + std::to_string(peer.port()));
    EXPECT_EQ(header_of(head, "Upgrade"), "websocket");
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Version"), "13");
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Key").size(), 24u);
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Extensions"), "");
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Protocol"), "");
    EXPECT_TRUE(text.is_final && text.is_masked && text.reserved == 0);
    EXPECT_EQ(text.opcode, frames::k_text);
    EXPECT_EQ(text.payload, "t");
}

TEST_F(ManagedContract, ItsOwnGoodbyeHasNoCode) {
    std::atomic<int> code{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        const peer_frame frame = connection.receive_frame();
        code = frame.opcode == frames::k_close ? frame.code() : -1;
        connection.send(frames::frame(frames::k_final | frames::k_close, ""));
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_EQ(m_events.text(), "opened | closed clean");
    EXPECT_EQ(code, 1005);
}

TEST_F(ManagedContract, CloseComesBehindWhatWasSent) {
    std::atomic<int> count{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        while (connection.receive_frame().opcode == frames::k_text) ++count;
        connection.send(frames::close(1000));
    });
    m_socket->SetOpenedHandler([](const std::shared_ptr<cWebSocket>& self) {
        for (int i = 0; i < 100; ++i) self->Send(std::string(1000, 'x').c_str());
        self->Close();
    });
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_TRUE(m_events.wait_for_line("closed clean")) << m_events.text();
    EXPECT_EQ(count, 100);
}

TEST_F(ManagedContract, TextThatIsNoUtf8IsSentMended) {
    peer_frame sent;
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        sent = connection.receive_frame();
        connection.close(1000);
    });
    m_socket->SetOpenedHandler(
        [](const std::shared_ptr<cWebSocket>& self) { self->Send("a\xFF"); });
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_TRUE(m_events.wait_for_line("closed clean")) << m_events.text();
    EXPECT_EQ(sent.payload, "a\xEF\xBF\xBD");
}

TEST_F(ManagedContract, TextsOfAllLengthsGoBothWays) {
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    std::size_t count = 1;
    for (const std::size_t size : {0, 1, 125, 126, 65535, 65536, 1 << 20}) {
        const std::string text(size, 'x');
        ASSERT_TRUE(m_events.wait_for(count));
        m_socket->Send(text.c_str());
        ASSERT_TRUE(m_events.wait_for(++count));
        EXPECT_EQ(m_events.lines().back().size(), size + 8);
    }
}

TEST_F(ManagedContract, BinaryMessagesAreCutAtTheirFirstNul) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        connection.send(frames::frame(frames::k_final | frames::k_binary, std::string("ab\0c", 4)));
        connection.receive_frame();
        connection.close(1000);
    });
    m_events.listen_and_answer(*m_socket);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(3));
    EXPECT_EQ(m_events.text(), "opened | message ab | closed clean");
}

TEST_F(ManagedContract, PingsAreAnsweredAndSent) {
    peer_frame pong;
    peer_frame ping;
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.send(frames::frame(frames::k_final | frames::k_ping, "are you there"));
        pong = connection.receive_frame();
        connection.send(frames::text("now you"));
        ping = connection.receive_frame();
        connection.close(1000);
    });
    m_socket->SetMessageHandler([this](const char*) { m_socket->SendPing(); });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("closed clean"));
    EXPECT_EQ(pong.opcode, frames::k_pong);
    EXPECT_EQ(pong.payload, "are you there");
    EXPECT_EQ(ping.opcode, frames::k_ping);
}

TEST_F(ManagedContract, FragmentsWithAPingBetweenAreOneMessage) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        connection.send(frames::frame(frames::k_text, "a\xC3"));
        connection.send(frames::frame(frames::k_final | frames::k_ping, ""));
        connection.receive_frame();
        connection.send(frames::frame(frames::k_continuation, "\xA4"));
        connection.send(frames::frame(frames::k_final | frames::k_continuation, ""));
        connection.receive_frame();
        connection.close(1000);
    });
    m_events.listen_and_answer(*m_socket);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(3));
    EXPECT_EQ(m_events.text(), "opened | message a\xC3\xA4 | closed clean");
}

TEST_F(ManagedContract, ConnectsToIPv6) {
    const scripted_peer peer(echo, "::1");
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.text(), "opened");
}

TEST_F(ManagedContract, LooksUpNames) {
    const scripted_peer peer(echo);
    const std::string url = "ws://localhost:" + std::to_string(peer.port()) + "/";
    m_socket->Open(url.c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.text(), "opened");
}

TEST_F(ManagedContract, AnUnreachableHostIsAnAbnormalClosure) {
    m_socket->Open("ws://127.0.0.1:1", 0);
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.text(), "error 5");
    m_socket->Open("ws://no-such-name.invalid/", 0);
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_EQ(m_events.text(), "error 5 | error 5");
}

TEST_F(ManagedContract, AUrlThatCannotBeUsedIsConnectFailedAtOnce) {
    for (const char* url : {"", "http://a/", "ws://", "ws://a/#b"}) m_socket->Open(url, 0);
    EXPECT_EQ(m_events.text(), "error 2 | error 2 | error 2 | error 2");
}

TEST_F(ManagedContract, SendWhileItOpensIsALibraryError) {
    gate may_go;
    const scripted_peer peer([&](peer_connection& connection) {
        may_go.wait();
        echo(connection);
    });
    m_socket->Open(peer.url().c_str(), 0);
    m_socket->Send("too early");
    EXPECT_EQ(m_events.text(), "error 1");
    may_go.open();
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_EQ(m_events.text(), "error 1 | opened");
}

TEST_F(ManagedContract, AGoodbyeThatIsNotAnsweredIsUnclean) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_EQ(m_events.text(), "opened | closed unclean");
}

TEST_F(ManagedContract, OpeningAgainClosesTheFirstConnection) {
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(3));
    EXPECT_TRUE(m_events.wait_for_line("closed clean"));
    m_socket->Send("on the second");
    EXPECT_TRUE(m_events.wait_for_line("message on the second"));
}

TEST_F(ManagedContract, DestructionAtAnyStageEndsTheConnection) {
    std::atomic<int> ended{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        connection.wait_for_end();
        ++ended;
    });
    for (int i = 0; i < 20; ++i) {
        event_log events;  // before its socket, which may tell it something until it has gone
        const auto socket = cWebSocket::Factory();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        if (i % 2 == 0) {
            EXPECT_TRUE(events.wait_for(1));
        }
    }
    EXPECT_TRUE(eventually([&] { return ended >= 10; }));
}

// What a handler does with its own socket.
struct handler_case {
    const char* when;
    const char* what;
};
void PrintTo(const handler_case& c, std::ostream* out) { *out << c.when << ' ' << c.what; }

std::vector<handler_case> handler_cases() {
    std::vector<handler_case> all;
    for (const char* when : {"opened", "message", "error", "closed"}) {
        for (const char* what : {"Close", "Open", "destroy"}) all.push_back({when, what});
    }
    return all;
}

// Answers what the host's handlers send, so that each of them is called.
void say_m_and_goodbye(peer_connection& connection) {
    connection.accept();
    connection.receive_frame();
    connection.send(frames::text("m"));
    connection.receive_frame();
    connection.close(1000);
}

class ManagedContractHandler : public testing::TestWithParam<handler_case> {
protected:
    ManagedContractHandler() {
        m_socket->SetOpenedHandler([this](const std::shared_ptr<cWebSocket>&) { act("opened"); });
        m_socket->SetMessageHandler([this](const char*) { act("message"); });
        m_socket->SetErrorHandler([this](cWebSocket::Error) { act("error"); });
        m_socket->SetClosedHandler(
            [this](std::optional<cWebSocket::Error>, bool) { act("closed"); });
    }

    void act(const std::string& now) {
        if (m_has_acted) return;
        if (now != GetParam().when) return m_socket->Send("go on");
        m_has_acted = true;
        const std::string what = GetParam().what;
        if (what == "Close") m_socket->Close();
        if (what == "Open") m_socket->Open(m_other.url().c_str(), 0);
        if (what == "destroy") m_socket.reset();
        m_has_returned.open();
    }

    gate m_is_opened_again;
    gate m_has_returned;
    std::atomic<bool> m_has_acted{false};
    std::atomic<int> m_ended{0};
    const scripted_peer m_peer{[this](peer_connection& connection) {
        say_m_and_goodbye(connection);
        connection.wait_for_end();
        ++m_ended;
    }};
    const scripted_peer m_other{[this](peer_connection& connection) {
        connection.accept();
        m_is_opened_again.open();
        connection.wait_for_end();
    }};
    std::shared_ptr<cWebSocket> m_socket = cWebSocket::Factory();
};

TEST_P(ManagedContractHandler, MayDoSo) {
    auto* const raw = m_socket.get();
    const bool has_peer = std::string(GetParam().when) != "error";
    raw->Open(has_peer ? m_peer.url().c_str() : "ws://127.0.0.1:1/", 0);
    EXPECT_TRUE(m_has_returned.wait());
    if (std::string(GetParam().what) == "Open") {
        EXPECT_TRUE(m_is_opened_again.wait());
    }
    if (has_peer) {
        EXPECT_TRUE(eventually([&] { return m_ended == 1; }));
    }
}

INSTANTIATE_TEST_SUITE_P(All, ManagedContractHandler, testing::ValuesIn(handler_cases()),
                         [](const auto& one) {
                             return std::string(one.param.when) + one.param.what;
                         });

// What long messages leave is of no use then.
TEST_F(ManagedContract, NoMemoryOfMessagesIsKeptBehindTheLastSocket) {
    using pennywort::websocket::spare_text;
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Send(std::string(1 << 20, 'x').c_str());
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_TRUE(eventually([] { return spare_text::count() > 0; }));
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for(3));
    m_socket.reset();
    EXPECT_TRUE(eventually([] { return spare_text::count() == 0; }));
}

// Whatever code a server closes with: clean where it may be sent, unclean where it may not.
TEST(ManagedContractClose, OfEveryCode) {
    for (const int code : k_codes_to_send) {
        std::atomic<int> answered{-1};
        const scripted_peer peer([&](peer_connection& connection) {
            connection.accept();
            connection.receive_frame();
            connection.send(frames::close(code));
            answered = connection.receive_frame().code();
        });
        event_log events;
        const auto socket = cWebSocket::Factory();
        events.listen_and_answer(*socket);
        socket->Open(peer.url().c_str(), 0);
        ASSERT_TRUE(events.wait_for(2)) << code;
        EXPECT_EQ(events.text(), "opened | closed clean") << code;
        EXPECT_TRUE(eventually([&] { return answered != -1; }));
        EXPECT_EQ(answered, code);
    }
}

TEST(ManagedContractClose, WithoutACode) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.receive_frame();
        connection.send(frames::frame(frames::k_final | frames::k_close, ""));
        connection.wait_for_end();
    });
    event_log events;
    const auto socket = cWebSocket::Factory();
    events.listen_and_answer(*socket);
    socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(events.wait_for(2));
    EXPECT_EQ(events.text(), "opened | closed clean");
}

// Answers that are no upgrade, and connections that end at each stage.
struct refusal_case {
    const char* name;
    const char* answer;
    const char* told;
};
void PrintTo(const refusal_case& c, std::ostream* out) { *out << c.name; }

constexpr refusal_case k_refusals[] = {
    {"Status200", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "closed unclean"},
    {"Status401", "HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n", "closed unclean"},
    {"Redirect", "HTTP/1.1 302 No\r\nLocation: /\r\nContent-Length: 0\r\n\r\n", "closed unclean"},
    {"NoKey", "HTTP/1.1 101 Yes\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n",
     "closed unclean"},
    {"WrongKey",
     "HTTP/1.1 101 Yes\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
     "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n",
     "closed unclean"},
    {"Rubbish", "rubbish\r\n\r\n", "error 5"},
    {"EndAtOnce", "", "error 5"},
    {"EndWithinTheHead", "HTTP/1.1 101 Yes\r\nUpgr", "error 5"},
};

class ManagedContractRefusal : public testing::TestWithParam<refusal_case> {};

TEST_P(ManagedContractRefusal, IsAClose) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send(GetParam().answer);
    });
    event_log events;
    const auto socket = cWebSocket::Factory();
    events.listen_to(*socket);
    socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(events.wait_for(1));
    EXPECT_EQ(events.text(), GetParam().told);
}

INSTANTIATE_TEST_SUITE_P(All, ManagedContractRefusal, testing::ValuesIn(k_refusals),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(ManagedContractLoss, AtEachStage) {
    for (const loss_stage& stage : loss_stages()) {
        const scripted_peer peer(stage.what);
        event_log events;
        const auto socket = cWebSocket::Factory();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        ASSERT_TRUE(events.wait_for_line("error 5"));
        const std::string told = events.text();
        EXPECT_TRUE(told == "error 5" || told == "opened | error 5") << told;
    }
}

}  // namespace
