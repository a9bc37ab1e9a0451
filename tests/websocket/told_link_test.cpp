// told_link_test.cpp - what both transports over Beast make of a link's events, told one by one.
#include "tests/websocket/told_link.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/limits.h"
#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "websocket/driven_link.h"
#include "websocket/link/link_maker.h"
#include "websocket/managed/engine.h"

namespace pennywort::websocket {
namespace {

using tests::eventually;

class ToldLink : public testing::Test {
protected:
    ToldLink() {
        current_link_maker() = [this](loop& on, std::weak_ptr<link_listener> listener) {
            m_loop = &on;
            m_link = std::make_shared<told_link>(on, std::move(listener));
            m_link->sends_at_once = m_sends_at_once;
            return m_link;
        };
    }
    ~ToldLink() override { current_link_maker() = &link::make; }

    loop* m_loop = nullptr;
    bool m_sends_at_once = false;
    std::shared_ptr<told_link> m_link;
};

// Among them what another thread that receives waits for.
TEST_F(ToldLink, ASystemSocketThatSendsWithoutAPauseLetsOtherEventsHaveTheirTurn) {
    m_sends_at_once = true;
    const auto driven = std::make_shared<driven_link>();
    ASSERT_TRUE(driven->open({}));
    for (int round = 0; round < 3; ++round) {
        const auto has_come = std::make_shared<bool>(false);
        m_loop->post([has_come] { *has_come = true; });
        int sends = 0;
        for (; !*has_come && sends < 10 * k_max_websocket_turns; ++sends) {
            ASSERT_TRUE(driven->send("x", true));
        }
        EXPECT_TRUE(*has_come) << round;
        // Each turn is a call of the system, which most messages do without.
        EXPECT_GT(sends, 8) << round;
    }
}

class AsynchronousToldLink : public ToldLink {
protected:
    void open() {
        m_events.listen_to(*m_socket);
        m_socket->Open("ws://a/", 0);
        ASSERT_TRUE(m_events.wait_for_line("opened"));
    }
    void send(const std::string& text) {
        m_socket->Send(text.c_str());
        ASSERT_TRUE(eventually([this] { return m_link->is_sending.load(); }));
    }
    // All that the loop was given before has been done behind this.
    void wait_for_loop() {
        const auto is_there = std::make_shared<gate>();
        m_engine->post([is_there] { is_there->open(); });
        ASSERT_TRUE(is_there->wait());
    }

    const std::shared_ptr<engine> m_engine = engine::shared();
    event_log m_events;
    std::shared_ptr<cWebSocket> m_socket = cWebSocket::Factory();
};

TEST_F(AsynchronousToldLink, AMessageThatIsBeingSentOutlivesItsConnection) {
    const std::string text(100'000, 'y');
    open();
    send(text);
    m_link->tell([](link_listener& to) { to.link_ended({link_fault::lost, 0, "gone"}); });
    ASSERT_TRUE(m_events.wait_for_line("error 5"));
    m_socket.reset();
    wait_for_loop();
    // The link may look at the bytes once more, as long as something is under way.
    ASSERT_TRUE(m_link->has_listener());
    EXPECT_TRUE(m_link->bytes() == text);
    m_link->keep(nullptr);
    EXPECT_FALSE(m_link->has_listener());
}

TEST_F(AsynchronousToldLink, WhatWaitsBecomesLessWithinAMessage) {
    const auto wrote = [this](std::size_t size) {
        m_link->tell([size](link_listener& to) { to.link_wrote(size); });
        wait_for_loop();
    };
    open();
    send(std::string(1000, 'y'));
    m_socket->Send("and more");
    wait_for_loop();
    EXPECT_EQ(m_socket->WaitingBytes(), 1008u);
    wrote(300);
    EXPECT_EQ(m_socket->WaitingBytes(), 708u);
    // The heads of frames are more than the message, which is not out before its end is told.
    wrote(714);
    EXPECT_EQ(m_socket->WaitingBytes(), 9u);
    m_link->tell([](link_listener& to) { to.link_sent(); });
    wait_for_loop();
    EXPECT_EQ(m_socket->WaitingBytes(), 8u);
    m_link->tell([](link_listener& to) { to.link_sent(); });
    wait_for_loop();
    EXPECT_EQ(m_socket->WaitingBytes(), 0u);
    m_link->tell([](link_listener& to) { to.link_ended({link_fault::lost, 0, "gone"}); });
    EXPECT_TRUE(m_events.wait_for_line("error 5"));
}

}  // namespace
}  // namespace pennywort::websocket
