// system_steps_test.cpp - cWebSocket_WinHttp over a transport that fails where a test says so: the
// order of the steps, and what the receive thread makes of the pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/told_transport.h"
#include "websocket/session_maker.h"

namespace pennywort::websocket {
namespace {

using tests::eventually;

class SystemStepsTest : public testing::Test {
protected:
    SystemStepsTest() {
        current_session_maker() = [this](const transport_settings& settings) {
            const bool is_ok = m_script.step("session " + settings.user_agent);
            return is_ok ? std::make_shared<told_session>(m_script) : nullptr;
        };
        m_events.listen_to(*m_socket);
    }
    ~SystemStepsTest() override { current_session_maker() = &transport_session::open; }

    void push(receive_status status, piece_kind kind, const std::string& bytes) {
        m_script.pieces.push_back({{status, kind, 0}, bytes});
    }
    void push_text(const std::string& bytes, piece_kind kind = piece_kind::text_message) {
        push(receive_status::ok, kind, bytes);
    }

    // In a handler on the receive thread.
    void destroy_once_opened() {
        m_has_opened.wait();
        m_socket.reset();
        m_events.add("gone");
    }
    void open_until_gone() {
        auto* const raw = m_socket.get();
        raw->Open("ws://a/", 0);
        m_has_opened.open();
        ASSERT_TRUE(m_events.wait_for_line("gone"));
        EXPECT_TRUE(eventually([&] { return m_script.asked.text().ends_with("~socket"); }))
            << m_script.asked.text();
        EXPECT_NE(m_script.asked.text().find("~session"), std::string::npos);
    }
    // In a handler on the receive thread, too: what `step` throws there.
    void note_throw_of(const std::function<void()>& step, const std::string& over) {
        m_code = 0;
        try {
            step();
        } catch (const std::system_error& error) {
            m_code = error.code().value();
        }
        m_events.add(over);
    }
    void open_until_over() {
        m_socket->Open("ws://a/", 0);
        ASSERT_TRUE(m_events.wait_for_line("over"));
        EXPECT_EQ(m_code, static_cast<int>(std::errc::resource_deadlock_would_occur));
        m_socket->Close();
        EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
    }

    script m_script;
    event_log m_events;
    gate m_has_opened;
    std::atomic<int> m_code{0};
    std::shared_ptr<system_socket> m_socket = std::make_shared<system_socket>();
};

TEST_F(SystemStepsTest, OpensStepByStep) {
    m_socket->Open("wss://host:81/path?q", 1);
    EXPECT_EQ(
        m_script.asked.text(),
        "session KettlewindWebSocket | connect host:81 | get /path?q secure | ask | request | "
        "response | upgrade | ~request");
    EXPECT_EQ(m_events.text(), "opened");
    m_socket->Close();
    EXPECT_EQ(m_script.asked.text().substr(m_script.asked.text().find("~request")),
              "~request | close 1000 | query | ~socket | ~connection | ~session");
    EXPECT_EQ(m_events.text(), "opened");
}

TEST_F(SystemStepsTest, EachStepThatFailsIsConnectFailed) {
    for (const char* step : {"session", "connect", "get", "ask", "request", "response"}) {
        script failing;
        failing.failing = step;
        current_session_maker() = [&](const transport_settings&) {
            return failing.step("session") ? std::make_shared<told_session>(failing) : nullptr;
        };
        event_log events;
        system_socket socket;
        events.listen_to(socket);
        socket.Open("ws://host/", 0);
        EXPECT_EQ(events.text(), "error 2") << step;
        // Nothing is left, and nothing was asked behind the failure.
        const std::string asked = failing.asked.text();
        EXPECT_EQ(asked.find("upgrade"), std::string::npos) << asked;
        EXPECT_EQ(asked.find("connect ") != std::string::npos,
                  asked.find("~session") != std::string::npos)
            << asked;
    }
}

TEST_F(SystemStepsTest, AUrlWithoutASchemeIsConnectFailed) {
    m_socket->Open("host/path", 0);
    m_socket->Open(nullptr, 0);
    EXPECT_EQ(m_events.text(), "error 2 | error 2");
    EXPECT_EQ(m_script.asked.text(), "");
}

TEST_F(SystemStepsTest, AnUpgradeThatFailsIsNotNoticedByDefault) {
    m_script.failing = "upgrade";
    m_socket->Open("ws://host/", 0);
    EXPECT_EQ(m_events.text(), "opened");
    m_socket->Send("x");
    EXPECT_EQ(m_events.text(), "opened | error 4");
    m_socket->Close();
}

TEST_F(SystemStepsTest, AnUpgradeThatFailsIsNoticedOnRequest) {
    m_script.failing = "upgrade";
    cWebSocketOptions options;
    options.isUpgradeChecked = true;
    m_socket->SetOptions(options);
    m_socket->Open("ws://host/", 0);
    EXPECT_EQ(m_events.text(), "error 2");
}

TEST_F(SystemStepsTest, AnAddressInBracketsIsAHostOnRequest) {
    m_socket->Open("ws://[::1]:81/", 0);
    EXPECT_NE(m_script.asked.text().find("connect [:80 "), std::string::npos);
    cWebSocketOptions options;
    options.isIPv6Taken = true;
    m_socket->SetOptions(options);
    m_socket->Open("ws://[::1]:81/", 0);
    EXPECT_NE(m_script.asked.text().find("connect ::1:81 "), std::string::npos);
    m_socket->Close();
}

TEST_F(SystemStepsTest, OpeningAgainClosesFirst) {
    m_socket->Open("ws://a/", 0);
    m_socket->Open("ws://b/", 0);
    const std::string asked = m_script.asked.text();
    EXPECT_LT(asked.find("~session"), asked.find("connect b:80"));
    EXPECT_EQ(m_events.text(), "opened | opened");
}

TEST_F(SystemStepsTest, FragmentsBecomeOneMessage) {
    push_text(std::string(512, 'a'), piece_kind::text_fragment);
    push_text(std::string(512, 'b'), piece_kind::text_fragment);
    push_text(std::string(476, 'c'));
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(m_events.wait_for(2));
    EXPECT_TRUE(m_events.wait_for_line("message " + std::string(512, 'a') + std::string(512, 'b') +
                                       std::string(476, 'c')));
}

TEST_F(SystemStepsTest, TextsEndAtANul) {
    push_text(std::string("ab\0cd", 5));
    push(receive_status::ok, piece_kind::binary_message, "binary");
    push(receive_status::ok, piece_kind::close, "");
    push_text("next");
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(m_events.wait_for_line("message next"));
    EXPECT_TRUE(m_events.wait_for_line("message ab"));
    EXPECT_EQ(m_events.lines().size(), 3u);
}

TEST_F(SystemStepsTest, ABinaryHandlerGetsMessagesWithTheirLength) {
    push(receive_status::ok, piece_kind::binary_fragment, std::string("a\0", 2));
    push(receive_status::ok, piece_kind::binary_message, "b");
    push_text("text");
    m_socket->SetBinaryHandler([this](const void* data, std::size_t size) {
        m_events.add("binary " + std::string(static_cast<const char*>(data), size));
    });
    m_socket->Open("ws://a/", 0);
    EXPECT_TRUE(m_events.wait_for_line(std::string("binary a\0b", 10)));
    EXPECT_TRUE(m_events.wait_for_line("message text"));
    EXPECT_EQ(m_events.lines().size(), 3u);
}

TEST_F(SystemStepsTest, ABinaryMessageOverTheCeilingEndsTheConnection) {
    cWebSocketOptions options;
    options.maxMessageBytes = 3;
    m_socket->SetOptions(options);
    m_socket->SetBinaryHandler([this](const void*, std::size_t) { m_events.add("binary"); });
    push(receive_status::ok, piece_kind::binary_message, "abcd");
    m_socket->Open("ws://a/", 0);
    EXPECT_TRUE(m_events.wait_for_line("error 3"));
    EXPECT_EQ(m_events.lines().size(), 2u);
}

TEST_F(SystemStepsTest, ALostConnectionIsToldOnceAndKeepsItsHandles) {
    push(receive_status::connection_lost, piece_kind::close, "");
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(m_events.wait_for_line("error 3"));
    EXPECT_EQ(m_script.asked.text().find("~s"), std::string::npos);
    m_socket->Close();
    EXPECT_NE(m_script.asked.text().find("close 1000"), std::string::npos);
    EXPECT_NE(m_script.asked.text().find("~session"), std::string::npos);
}

TEST_F(SystemStepsTest, OtherErrorsAreWaitedOut) {
    push(receive_status::failed, piece_kind::close, "");
    push_text("after");
    m_socket->Open("ws://a/", 0);
    EXPECT_TRUE(m_events.wait_for_line("message after"));
    EXPECT_EQ(m_events.lines().size(), 2u);
}

TEST_F(SystemStepsTest, ThereIsAPauseBehindEachError) {
    constexpr std::size_t k_errors = 1000;
    for (std::size_t i = 0; i < k_errors; ++i) {
        push(receive_status::failed, piece_kind::close, "");
    }
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(eventually([this] { return m_script.receives > 0; }));
    // In the time that these take a loop without a pause is through.
    for (int i = 0; i < 200; ++i) std::thread([] {}).join();
    m_socket->Close();
    EXPECT_LT(m_script.receives, 100);
}

TEST_F(SystemStepsTest, AGoodbyeIsToldOnRequest) {
    push(receive_status::ok, piece_kind::close, "");
    push_text("after");
    m_socket->SetGoodbyeHandler([this](std::int32_t code, const char* reason) {
        m_events.add(std::to_string(code) + " " + reason);
    });
    m_socket->Open("ws://a/", 0);
    EXPECT_TRUE(m_events.wait_for_line("message after"));
    EXPECT_TRUE(m_events.wait_for_line("1008 policy"));
}

// The one who asks why hears it before the error.
TEST_F(SystemStepsTest, AFaultIsToldInWordsOnRequest) {
    m_script.fault = "a reason";
    m_socket->SetFaultHandler([this](const char* why) { m_events.add(why); });
    for (const char* step : {"request", "response"}) {
        m_script.failing = step;
        m_socket->Open("ws://a/", 0);
    }
    EXPECT_EQ(m_events.text(), "a reason | error 2 | a reason | error 2");
    m_socket->Open("nothing", 0);
    EXPECT_TRUE(m_events.text().ends_with(" | the URL is not understood | error 2"));
    m_script.failing = "";
    push(receive_status::connection_lost, piece_kind::close, "");
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(m_events.wait_for_line("error 3"));
    const std::vector<std::string> lines = m_events.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "a reason"), 3);
}

TEST_F(SystemStepsTest, AFaultHandlerMayDestroyItsSocket) {
    m_script.fault = "a reason";
    m_script.failing = "request";
    m_socket->SetFaultHandler([this](const char*) { m_socket.reset(); });
    auto* const raw = m_socket.get();
    raw->Open("ws://a/", 0);
    EXPECT_EQ(m_socket, nullptr);
    EXPECT_EQ(m_events.text(), "");
    EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
}

TEST_F(SystemStepsTest, AGoodbyeThatCannotBeHadHasNoCode) {
    m_script.failing = "query";
    push(receive_status::ok, piece_kind::close, "");
    m_socket->SetGoodbyeHandler([this](std::int32_t code, const char* reason) {
        m_events.add(std::to_string(code) + reason);
    });
    m_socket->Open("ws://a/", 0);
    EXPECT_TRUE(m_events.wait_for_line("1005")) << m_events.text();
}

TEST_F(SystemStepsTest, AMessageOverTheCeilingEndsTheConnection) {
    cWebSocketOptions options;
    options.maxMessageBytes = 3;
    m_socket->SetOptions(options);
    push_text("abc");
    push_text("abcd");
    m_socket->Open("ws://a/", 0);
    ASSERT_TRUE(m_events.wait_for_line("error 3"));
    EXPECT_TRUE(m_events.wait_for_line("message abc"));
    EXPECT_EQ(m_events.lines().size(), 3u);
}

TEST_F(SystemStepsTest, SendsOneMessageEach) {
    m_socket->Send("too early");
    EXPECT_EQ(m_events.text(), "error 4");
    m_socket->Open("ws://a/", 0);
    m_socket->Send("text");
    m_socket->Send("");
    m_socket->Send(nullptr);
    m_socket->SendBinary("b", 1);
    EXPECT_TRUE(m_script.asked.text().ends_with("send text | send  | send  | binary"));
    m_script.failing = "send";
    m_socket->Send("x");
    EXPECT_TRUE(m_events.wait_for_line("error 4"));
    EXPECT_EQ(m_events.text(), "error 4 | opened | error 4");
}

TEST_F(SystemStepsTest, CloseOnTheReceiveThreadRaisesADeadlock) {
    m_socket->SetMessageHandler(
        [this](const char* text) { note_throw_of([this] { m_socket->Close(); }, text); });
    // Often, since the handler may come before Open has returned.
    for (int i = 0; i < 100; ++i) {
        const std::string over = "over " + std::to_string(i);
        push_text(over);
        m_socket->Open("ws://a/", 0);
        ASSERT_TRUE(m_events.wait_for_line(over));
        ASSERT_EQ(m_code, static_cast<int>(std::errc::resource_deadlock_would_occur)) << i;
        EXPECT_FALSE(m_script.asked.text().ends_with("~session"));
        m_socket->Close();
        EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
    }
}

// Opening closes first, which nobody can do on the receive thread.
TEST_F(SystemStepsTest, OpenOnTheReceiveThreadRaisesADeadlockToo) {
    push_text("again");
    m_socket->SetMessageHandler(
        [this](const char*) { note_throw_of([this] { m_socket->Open("ws://b/", 0); }, "over"); });
    open_until_over();
    EXPECT_EQ(m_script.asked.text().find("connect b"), std::string::npos);
}

// As in each other handler there, which does not keep the handles from a Close elsewhere.
TEST_F(SystemStepsTest, CloseInTheHandlerOfALossRaisesADeadlock) {
    push(receive_status::connection_lost, piece_kind::close, "");
    m_socket->SetErrorHandler(
        [this](cWebSocket::Error) { note_throw_of([this] { m_socket->Close(); }, "over"); });
    open_until_over();
}

TEST_F(SystemStepsTest, TheHandlerOfALossMayDestroyItsSocket) {
    push(receive_status::connection_lost, piece_kind::close, "");
    m_socket->SetErrorHandler([this](cWebSocket::Error) { destroy_once_opened(); });
    open_until_gone();
}

TEST_F(SystemStepsTest, AHandlerMayDestroyItsSocket) {
    push_text("destroy");
    m_socket->SetMessageHandler([this](const char*) { destroy_once_opened(); });
    open_until_gone();
}

// Its opening is not told any more, then.
TEST_F(SystemStepsTest, AMessageHandlerMayDestroyItsSocketBeforeOpenReturns) {
    push_text("destroy");
    gate is_gone;
    m_script.at_request_end = [&] { EXPECT_TRUE(is_gone.wait()); };
    m_socket->SetMessageHandler([&](const char*) {
        m_socket.reset();
        is_gone.open();
    });
    auto* const raw = m_socket.get();
    raw->Open("ws://a/", 0);
    EXPECT_EQ(m_events.text(), "");
    // Before the request is given up or behind it: the receive thread has long begun then.
    EXPECT_TRUE(eventually([&] {
        return m_script.asked.text().find("~socket") != std::string::npos;
    })) << m_script.asked.text();
}

TEST_F(SystemStepsTest, TheOpenedHandlerMayDestroyItsSocket) {
    m_socket->SetOpenedHandler([this](const std::shared_ptr<cWebSocket>&) {
        m_socket.reset();
        m_events.add("opened");
    });
    auto* const raw = m_socket.get();
    raw->Open("ws://a/", 0);
    EXPECT_EQ(m_socket, nullptr);
    EXPECT_TRUE(m_script.asked.text().find("~session") != std::string::npos);
}

TEST_F(SystemStepsTest, TheOpenedHandlerMayCloseItsSocketAndOpenItAgain) {
    for (const bool opens : {false, true}) {
        m_socket->SetOpenedHandler([&](const std::shared_ptr<cWebSocket>& self) {
            self->SetOpenedHandler(
                [this](const std::shared_ptr<cWebSocket>&) { m_events.add("b"); });
            m_events.add("a");
            if (opens) return self->Open("ws://b/", 0);
            self->Close();
        });
        m_socket->Open("ws://a/", 0);
        EXPECT_EQ(m_script.asked.text().ends_with("~session"), !opens);
    }
    EXPECT_EQ(m_events.text(), "a | a | b");
    m_socket->Close();
    EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
}

// The opening that has failed closes when it has told so.
TEST_F(SystemStepsTest, WhatTheErrorHandlerOpensIsClosedAgain) {
    m_script.failing = "connect";
    m_socket->SetErrorHandler([this](cWebSocket::Error) {
        m_script.failing = "";
        m_socket->Open("ws://b/", 0);
    });
    m_socket->Open("ws://a/", 0);
    EXPECT_EQ(m_events.text(), "opened");
    EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
    EXPECT_NE(m_script.asked.text().find("connect b:80"), std::string::npos);
}

TEST_F(SystemStepsTest, TheErrorHandlerMayDestroyItsSocket) {
    m_script.failing = "connect";
    m_socket->SetErrorHandler([this](cWebSocket::Error) { m_socket.reset(); });
    auto* const raw = m_socket.get();
    raw->Open("ws://a/", 0);
    EXPECT_EQ(m_socket, nullptr);
    EXPECT_TRUE(m_script.asked.text().ends_with("~session"));
}

}  // namespace
}  // namespace pennywort::websocket
