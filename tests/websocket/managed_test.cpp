// managed_test.cpp - what the library's own binding of the asynchronous transport does beyond what
// every binding does: options, reconnections, and what waits to be sent.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/managed_fixture.h"
#include "tests/websocket/scripted_peer.h"

namespace {

using pennywort::tests::eventually;

class ManagedTest : public ManagedFixture {};

TEST_F(ManagedTest, CloseWhileItOpensIsAnUncleanClose) {
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    m_socket->Open(peer.url().c_str(), 0);
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.text(), "closed unclean");
}

TEST_F(ManagedTest, WhatWaitsIsToldAndGoesOut) {
    gate may_read;
    const std::string text(32 << 20, 'x');
    const scripted_peer peer([&](peer_connection& connection) {
        connection.accept();
        may_read.wait();
        while (connection.receive(1 << 20).size() == 1 << 20) {
        }
    });
    EXPECT_EQ(m_socket->WaitingBytes(), 0u);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(1));
    m_socket->Send(text.c_str());
    EXPECT_GT(m_socket->WaitingBytes(), 0u);
    may_read.open();
    EXPECT_TRUE(eventually([&] { return m_socket->WaitingBytes() == 0; }));
}

// A server that is lost, out of reach and out of order before it is back.
TEST_F(ManagedTest, ALostConnectionIsOpenedAgain) {
    std::atomic<int> count{0};
    const scripted_peer peer([&](peer_connection& connection) {
        const int attempt = ++count;
        if (attempt == 2) return connection.reset();
        if (attempt == 3) {
            connection.receive_head();
            connection.send("HTTP/1.1 503 Soon\r\nContent-Length: 0\r\n\r\n");
            return;
        }
        connection.accept();
        connection.receive_frame();
        if (attempt == 1) return connection.reset();
        connection.send(frames::text("here again"));
        connection.receive_frame();
        connection.send(frames::close(1000));
    });
    cWebSocketOptions options;
    options.maxReconnects = 3;
    options.firstReconnectWait = 0.001;
    m_socket->SetOptions(options);
    m_socket->SetOpenedHandler([this](const std::shared_ptr<cWebSocket>& self) {
        m_events.add("opened");
        self->Send("here");
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for_line("message here again")) << m_events.text();
    // What is closed is not opened again when the server goes.
    m_socket->Close();
    ASSERT_TRUE(m_events.wait_for_line("closed clean")) << m_events.text();
    EXPECT_EQ(m_events.text(),
              "opened | error 5 | error 5 | closed unclean | opened | message here again | "
              "closed clean");
    EXPECT_EQ(count, 4);
}

TEST_F(ManagedTest, SaysWhyThereIsNoConnection) {
    const scripted_peer refuses([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n");
    });
    m_socket->SetFaultHandler([this](const char* why) { m_events.add(why); });
    m_socket->Open("ws://127.0.0.1:1/", 0);
    ASSERT_TRUE(m_events.wait_for(2));
    m_socket->Open("ws://no-such-name.invalid/", 0);
    ASSERT_TRUE(m_events.wait_for(4));
    m_socket->Open(refuses.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(6));
    const std::vector<std::string> lines = m_events.lines();
    EXPECT_TRUE(lines[0].starts_with("nobody listens there")) << lines[0];
    EXPECT_TRUE(lines[2].starts_with("the host is not found")) << lines[2];
    EXPECT_EQ(lines[4], "the server answers 401");
}

TEST_F(ManagedTest, SendsBeyondTheCeilingAreRefused) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.accept();
        while (connection.receive_frame().opcode != -1) {
        }
    });
    cWebSocketOptions options;
    options.maxWaitingBytes = 1000;
    m_socket->SetOptions(options);
    gate is_inside;
    // The handler may still be in it when the test is over.
    const auto may_leave = std::make_shared<gate>();
    m_socket->SetOpenedHandler([&, may_leave](const std::shared_ptr<cWebSocket>&) {
        is_inside.open();
        may_leave->wait();
    });
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(is_inside.wait());
    // The binding's thread is held, so that what is sent from here waits.
    m_socket->Send(std::string(900, 'x').c_str());
    EXPECT_EQ(m_events.text(), "");
    m_socket->Send(std::string(200, 'x').c_str());
    EXPECT_EQ(m_events.text(), "error 1");
    may_leave->open();
}

TEST_F(ManagedTest, HeadersAndProtocolsAreOffered) {
    std::string head;
    const scripted_peer peer([&](peer_connection& connection) {
        head = connection.accept("Sec-WebSocket-Protocol: b\r\n");
        connection.close(1000);
    });
    cWebSocketOptions options;
    options.headers = "X-One: 1\nX-Two: zwei drei";
    options.protocols = "a, b";
    m_socket->SetOptions(options);
    m_socket->Open(peer.url().c_str(), 0);
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_EQ(m_events.text(), "opened | closed clean");
    EXPECT_EQ(header_of(head, "X-One"), "1");
    EXPECT_EQ(header_of(head, "X-Two"), "zwei drei");
    EXPECT_EQ(header_of(head, "Sec-WebSocket-Protocol"), "a, b");
}

TEST_F(ManagedTest, ATimeoutIsHonouredOnRequest) {
    const scripted_peer peer([](peer_connection& connection) { connection.wait_for_end(); });
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    m_socket->SetOptions(options);
    m_socket->Open(peer.url().c_str(), 0.01);
    ASSERT_TRUE(m_events.wait_for(1));
    EXPECT_EQ(m_events.text(), "error 5");
}

TEST(ManagedRefusal, OfWhatWasNotOffered) {
    for (const char* line :
         {"Sec-WebSocket-Protocol: mine\r\n", "Sec-WebSocket-Extensions: permessage-deflate\r\n",
          "Sec-WebSocket-Extensions: x-other\r\n"}) {
        const scripted_peer peer([&](peer_connection& connection) {
            connection.accept(line);
            connection.wait_for_end();
        });
        event_log events;
        const auto socket = cWebSocket::Factory();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        ASSERT_TRUE(events.wait_for(1));
        EXPECT_EQ(events.text(), "closed unclean") << line;
    }
}

}  // namespace
