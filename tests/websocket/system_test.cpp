// system_test.cpp - the system transport against servers that do as they are told.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "tests/loam/wine.h"
#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace {

using pennywort::tests::eventually;

class SystemTest : public testing::Test {
protected:
    SystemTest() { m_events.listen_to(*m_socket); }

    event_log m_events;
    std::shared_ptr<cWebSocket> m_socket = std::make_shared<system_socket>();
};

TEST_F(SystemTest, OpensTalksAndCloses) {
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_EQ(m_events.text(), "opened");
    m_socket->Send("hello");
    ASSERT_TRUE(m_events.wait_for(2));
    m_socket->Close();
    EXPECT_EQ(m_events.text(), "opened | message hello");
    m_socket->Send("too late");
    EXPECT_EQ(m_events.text(), "opened | message hello | error 4");
}

TEST_F(SystemTest, AsksAsTheStandardHasItAndSaysGoodbyeWith1000) {
    std::string head;
    std::atomic<int> code{-1};
    peer_frame text;
    const scripted_peer peer([&](peer_connection& connection) {
        head = connection.accept();
        text = connection.receive_frame();
        const peer_frame frame = connection.receive_frame();
        connection.send(frames::close(1000));
        code = frame.code();
        connection.wait_for_end();
    });
    m_socket->Open(peer.url("/a?b=c").c_str(), 0);
    m_socket->Send("t");
    m_socket->Close();
    ASSERT_TRUE(eventually([&] { return code != -1; }));
    EXPECT_TRUE(head.starts_with("GET /a?b=c HTTP/1.1\r\n")) << head;
    EXPECT_EQ(header_of(head, "User-Agent"), "KettlewindWebSocket");
    EXPECT_EQ(header_of(head, "Host"), "127.0.0.1:" + std::to_string(peer.port()));
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Version"), "13");
    EXPECT_TRUE(text.is_final && text.is_masked && text.reserved == 0);
    EXPECT_EQ(text.payload, "t");
    EXPECT_EQ(code, 1000);
}

TEST_F(SystemTest, TextsOfAllLengthsGoBothWays) {
    const scripted_peer peer(echo);
    m_socket->Open(peer.url().c_str(), 0);
    std::size_t count = 1;
    for (const std::size_t size : {1, 125, 126, 511, 512, 513, 1500, 65535, 65536, 1 << 20}) {
        m_socket->Send(std::string(size, 'x').c_str());
        ASSERT_TRUE(m_events.wait_for(++count)) << size;
        EXPECT_EQ(m_events.lines().back().size(), size + 8);
    }
    m_socket->Close();
    EXPECT_EQ(m_events.lines().size(), count);
}

TEST_F(SystemTest, AnEmptyTextIsAnEmptyMessage) {
    std::atomic<int> opcode{-1};
    std::atomic<std::size_t> size{99};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        const peer_frame frame = connection.receive_frame();
        size = frame.payload.size();
        opcode = frame.opcode;
        connection.close(1000);
    });
    m_socket->Open(peer.url().c_str(), 0);
    m_socket->Send("");
    ASSERT_TRUE(eventually([&] { return opcode != -1; }));
    EXPECT_EQ(opcode, frames::k_text);
    EXPECT_EQ(size, 0u);
}

TEST_F(SystemTest, AFragmentedMessageIsDeliveredOnceAndWhole) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::frame(frames::k_text, std::string(512, 'a')));
        connection.send(frames::frame(frames::k_continuation, std::string(512, 'b')));
        connection.send(
            frames::frame(frames::k_final | frames::k_continuation, std::string(476, 'c')));
        connection.receive_frame();
    });
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_TRUE(m_events.wait_for_line("message " + std::string(512, 'a') + std::string(512, 'b') +
                                       std::string(476, 'c')));
}

TEST_F(SystemTest, ATextIsCutAtItsNulAndBinaryIsPassedOver) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::frame(frames::k_final | frames::k_binary, "binary"));
        connection.send(frames::text(std::string("ab\0c", 4)));
        connection.send(frames::text("next"));
        connection.receive_frame();
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("message next"));
    EXPECT_TRUE(m_events.wait_for_line("message ab"));
    EXPECT_EQ(m_events.lines().size(), 3u);
}

TEST_F(SystemTest, AServerThatIsGoneIsALostConnection) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine takes it for a server that talks nonsense";
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.reset();
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("error 3"));
    m_socket->Close();
}

TEST_F(SystemTest, AServersGoodbyeIsNotTold) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.send(frames::text("last"));
        connection.close(1000);
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("message last"));
    m_socket->Close();
    // The receive thread begins before the opened handler is called.
    EXPECT_EQ(m_events.lines().size(), 2u) << m_events.text();
}

TEST_F(SystemTest, WhatCannotBeReachedIsConnectFailed) {
    m_socket->Open("ws://127.0.0.1:1", 0);
    m_socket->Open("ws://no-such-name.invalid/", 0);
    m_socket->Open("ws:///path", 0);
    m_socket->Open("ws://127.0.0.1:70000/", 0);
    EXPECT_EQ(m_events.text(), "error 2 | error 2 | error 2 | error 2");
}

TEST_F(SystemTest, ASilentServerIsConnectFailedWhereTheTimeoutIsHonoured) {
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    m_socket->SetOptions(options);
    m_socket->Open(peer.url().c_str(), 0.05);
    EXPECT_EQ(m_events.text(), "error 2");
}

TEST_F(SystemTest, AResetBeforeTheAnswerIsConnectFailed) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.reset();
    });
    m_socket->Open(peer.url().c_str(), 0);
    EXPECT_EQ(m_events.text(), "error 2");
}

TEST_F(SystemTest, AnAnswerThatIsNoUpgradeIsConnectFailedOnRequest) {
    cWebSocketOptions options;
    options.isUpgradeChecked = true;
    m_socket->SetOptions(options);
    for (const char* status : {"200 OK", "401 No"}) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.receive_head();
            connection.send("HTTP/1.1 " + std::string(status) + "\r\nContent-Length: 0\r\n\r\n");
            connection.wait_for_end();
        });
        m_socket->Open(peer.url().c_str(), 0);
    }
    EXPECT_EQ(m_events.text(), "error 2 | error 2");
}

TEST_F(SystemTest, CloseEndsAServerThatDoesNotAnswer) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine ends no wait of a handle that is closed";
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        connection.wait_for_end();
    });
    m_socket->Open(peer.url().c_str(), 0);
    m_socket->Close();
    EXPECT_EQ(m_events.text(), "opened");
}

TEST_F(SystemTest, SendWorksFromManyThreads) {
    std::atomic<int> count{0};
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        while (true) {
            const peer_frame frame = connection.receive_frame();
            if (frame.opcode != frames::k_text) return;
            if (frame.payload == std::string(3000, 'x')) ++count;
        }
    });
    m_socket->Open(peer.url().c_str(), 0);
    std::vector<std::thread> senders;
    for (int i = 0; i < 4; ++i) {
        senders.emplace_back([this] {
            for (int k = 0; k < 50; ++k) m_socket->Send(std::string(3000, 'x').c_str());
        });
    }
    for (std::thread& one : senders) one.join();
    EXPECT_TRUE(eventually([&] { return count == 200; })) << count;
}

TEST_F(SystemTest, AHandlerMayDestroyItsSocket) {
    gate is_gone;
    const scripted_peer peer(echo);
    auto* const raw = m_socket.get();
    m_socket->SetMessageHandler([&](const char*) {
        m_socket.reset();
        is_gone.open();
    });
    raw->Open(peer.url().c_str(), 0);
    raw->Send("destroy");
    EXPECT_TRUE(is_gone.wait());
}

}  // namespace
