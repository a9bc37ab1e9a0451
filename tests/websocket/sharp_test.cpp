// sharp_test.cpp - cWebSocket_Sharp and its Impl over a managed socket that does as it is told.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/collected_traces.h"
#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/told_managed_socket.h"
#include "websocket/managed/impl.h"
#include "websocket/managed/managed_maker.h"
#include "websocket/managed/reconnect.h"

namespace pennywort::websocket {
namespace {

class SharpTest : public testing::Test {
protected:
    SharpTest() {
        current_managed_maker() = [this](const managed_request& request,
                                         const std::weak_ptr<managed_owner>& owner) {
            if (request.url == "throw") throw std::invalid_argument("bad URL");
            m_last = std::make_shared<told_managed_socket>(owner);
            return m_last;
        };
        m_socket = std::make_shared<cWebSocket_Sharp>([this](std::string text) { m_log = text; });
        m_events.listen_to(*m_socket);
    }
    ~SharpTest() override { current_managed_maker() = &managed_socket::make; }

    std::shared_ptr<managed_owner> owner() const { return m_last->owner.lock(); }

    // Counts the sockets that are connected. m_last is behind the count, also from another thread.
    std::shared_ptr<std::atomic<int>> count_connects() {
        const auto count = std::make_shared<std::atomic<int>>(0);
        current_managed_maker() = [this, count](const managed_request&,
                                                const std::weak_ptr<managed_owner>& to) {
            const auto one = m_last = std::make_shared<told_managed_socket>(to);
            one->at_connect = [count] { ++*count; };
            return one;
        };
        return count;
    }

    std::shared_ptr<told_managed_socket> m_last;
    std::shared_ptr<cWebSocket> m_socket;
    std::string m_log;
    event_log m_events;
};

TEST_F(SharpTest, ForwardsOperations) {
    m_socket->Open("ws://a", 1);
    m_socket->Send("hello");
    m_socket->Send(nullptr);
    m_socket->SendBinary("a\0b", 3);
    m_socket->SendPing();
    m_socket->Close();
    EXPECT_EQ(m_last->calls, "connect | text hello | text  | binary 3 | ping | close");
    EXPECT_EQ(m_events.text(), "");
}

TEST_F(SharpTest, WithoutASocketNothingHappens) {
    m_socket->Send("x");
    m_socket->SendPing();
    m_socket->SendBinary("b", 1);
    m_socket->Close();
    EXPECT_EQ(m_last, nullptr);
    m_socket->Open("ws://a", 0);
    m_socket->Close();
    m_socket->Close();
    m_socket->Send("x");
    EXPECT_EQ(m_last->calls, "connect | close");
    EXPECT_EQ(m_events.text(), "");
}

TEST_F(SharpTest, OpeningAgainClosesFirst) {
    m_socket->Open("ws://a", 0);
    const auto first = m_last;
    m_socket->Open("ws://b", 0);
    EXPECT_EQ(first->calls, "connect | close");
    EXPECT_EQ(m_last->calls, "connect");
    // Events of the first one still arrive.
    first->owner.lock()->socket_closed(1005, true);
    EXPECT_EQ(m_events.text(), "closed clean");
}

TEST_F(SharpTest, AnExceptionOfOpenIsLoggedAndSignalled) {
    m_socket->Open("throw", 0);
    EXPECT_EQ(m_log, "cWebSocket_Sharp::Open - Exceptionbad URL");
    EXPECT_EQ(m_events.text(), "error 2");
    m_socket->Send("x");
    EXPECT_EQ(m_events.text(), "error 2");
}

TEST_F(SharpTest, AnExceptionOfSendIsALibraryErrorAndTraced) {
    const tests::collected_traces traces;
    m_socket->Open("ws://a", 0);
    m_socket->Send("throw");
    EXPECT_EQ(m_events.text(), "error 1");
    EXPECT_NE(traces.text().find("not open"), std::string::npos) << traces.text();
}

TEST_F(SharpTest, EventsReachTheHandlers) {
    m_socket->Open("ws://a", 0);
    owner()->socket_opened();
    owner()->message_received("text", false);
    owner()->message_received(std::string("bi\0nary", 7), true);
    owner()->error_received("words");
    owner()->socket_closed(1000, true);
    EXPECT_EQ(m_events.text(), "opened | message text | message bi | error 1 | closed clean");
}

TEST_F(SharpTest, ABinaryHandlerTakesTheLength) {
    std::size_t size = 0;
    m_socket->SetBinaryHandler([&](const void*, std::size_t count) { size = count; });
    m_socket->Open("ws://a", 0);
    owner()->message_received(std::string("bi\0nary", 7), true);
    owner()->message_received("text", false);
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(m_events.text(), "message text");
}

// The one who asks why hears it before the error or the close.
TEST_F(SharpTest, AFaultIsToldInWordsOnRequest) {
    m_socket->SetFaultHandler([this](const char* why) { m_events.add(why); });
    m_socket->Open("throw", 0);
    m_socket->Open("ws://a", 0);
    m_socket->Send("throw");
    owner()->fault_received("");
    owner()->fault_received("a reason");
    owner()->socket_closed(1002, false);
    EXPECT_EQ(m_events.text(),
              "bad URL | error 2 | not open | error 1 | a reason | closed unclean");
}

TEST_F(SharpTest, AFaultHandlerMayDestroyItsSocket) {
    for (const char* url : {"throw", "ws://a"}) {
        m_socket = std::make_shared<cWebSocket_Sharp>(std::function<void(std::string)>());
        m_events.listen_to(*m_socket);
        m_socket->SetFaultHandler([this](const char*) { m_socket.reset(); });
        auto* const raw = m_socket.get();
        raw->Open(url, 0);
        if (m_socket != nullptr) raw->Send("throw");
        EXPECT_EQ(m_socket, nullptr);
    }
    EXPECT_EQ(m_events.text(), "");
}

struct close_case {
    int code;
    bool was_clean;
    const char* told;
};

TEST_F(SharpTest, ClosesAreToldByCodeAndFlag) {
    for (const close_case& one :
         {close_case{1000, true, "closed clean"}, close_case{1000, false, "closed unclean"},
          close_case{1005, true, "closed clean"}, close_case{1006, false, "error 5"},
          close_case{1006, true, "closed 5 clean"}, close_case{1011, true, "closed clean"},
          close_case{1015, false, "closed unclean"}}) {
        event_log events;
        cWebSocket_Sharp socket({});
        events.listen_to(socket);
        socket.Open("ws://a", 0);
        owner()->socket_closed(static_cast<std::uint16_t>(one.code), one.was_clean);
        EXPECT_EQ(events.text(), one.told) << one.code;
    }
}

TEST_F(SharpTest, AfterDestructionEventsGoNowhere) {
    m_socket->Open("ws://a", 0);
    const auto late = m_last->owner.lock();
    m_socket.reset();
    late->message_received("late", false);
    late->socket_closed(1006, false);
    EXPECT_EQ(m_events.text(), "");
    EXPECT_EQ(m_last->calls, "connect | close");
}

TEST_F(SharpTest, DestructionClosesTheConnection) {
    m_socket->Open("ws://a", 0);
    m_socket.reset();
    EXPECT_EQ(m_last->calls, "connect | close");
    EXPECT_EQ(m_last->owner.lock(), nullptr);
}

TEST_F(SharpTest, AHandlerMayDestroyItsSocket) {
    m_socket->Open("ws://a", 0);
    m_socket->SetMessageHandler([this](const char*) { m_socket.reset(); });
    owner()->message_received("text", false);
    EXPECT_EQ(m_socket, nullptr);
    EXPECT_EQ(m_last->owner.lock(), nullptr);
}

TEST_F(SharpTest, AHandlerMayOpenAgain) {
    m_socket->Open("ws://a", 0);
    const auto first = m_last;
    m_socket->SetClosedHandler(
        [this](std::optional<cWebSocket::Error>, bool) { m_socket->Open("ws://b", 0); });
    owner()->socket_closed(1000, true);
    EXPECT_NE(m_last, first);
    EXPECT_EQ(m_last->calls, "connect");
}

TEST_F(SharpTest, DestructionWaitsForAHandlerOfAnotherThread) {
    m_socket->Open("ws://a", 0);
    gate is_inside;
    gate may_leave;
    std::atomic<bool> has_left{false};
    m_socket->SetMessageHandler([&](const char*) {
        is_inside.open();
        may_leave.wait();
        has_left = true;
    });
    std::thread events([late = owner()] { late->message_received("text", false); });
    ASSERT_TRUE(is_inside.wait());
    std::thread helper([&] { may_leave.open(); });
    m_socket.reset();
    EXPECT_TRUE(has_left);
    helper.join();
    events.join();
}

TEST_F(SharpTest, ALossIsNotMadeGoodByDefault) {
    m_socket->Open("ws://a", 0);
    const auto first = m_last;
    owner()->socket_closed(1006, false);
    EXPECT_EQ(m_last, first);
    EXPECT_EQ(m_events.text(), "error 5");
}

TEST_F(SharpTest, ALossIsMadeGoodOnRequest) {
    cWebSocketOptions options;
    options.maxReconnects = 2;
    options.firstReconnectWait = 0;
    m_socket->SetOptions(options);
    const auto connects = count_connects();
    m_socket->Open("ws://a", 0);
    for (int i = 0; i < 2; ++i) {
        owner()->socket_closed(1006, false);
        ASSERT_TRUE(tests::eventually([&] { return *connects == i + 2; }));
    }
    // An opening begins the count anew.
    owner()->socket_opened();
    owner()->socket_closed(1006, false);
    ASSERT_TRUE(tests::eventually([&] { return *connects == 4; }));
    EXPECT_EQ(m_events.text(), "error 5 | error 5 | opened | error 5");
}

// Others that are lost behind it have been made good by then.
TEST_F(SharpTest, AGoodbyeAndACloseAreNoLoss) {
    cWebSocketOptions options;
    options.maxReconnects = -1;
    options.firstReconnectWait = 0;
    std::atomic<int> made_first{0};
    const auto connects_other = std::make_shared<std::atomic<int>>(0);
    std::weak_ptr<managed_owner> first;
    std::weak_ptr<managed_owner> other;
    current_managed_maker() = [&](const managed_request& request,
                                  const std::weak_ptr<managed_owner>& to) {
        const bool is_first = request.url == "ws://first";
        (is_first ? first : other) = to;
        const auto one = std::make_shared<told_managed_socket>(to);
        if (is_first) ++made_first;
        if (!is_first) one->at_connect = [connects_other] { ++*connects_other; };
        return one;
    };
    const auto fence = cWebSocket::Factory();
    for (const bool is_closed : {false, true}) {
        made_first = *connects_other = 0;
        m_socket->SetOptions(options);
        fence->SetOptions(options);
        m_socket->Open("ws://first", 0);
        if (is_closed) m_socket->Close();
        first.lock()->socket_closed(is_closed ? 1005 : 1000, !is_closed);
        fence->Open("ws://other", 0);
        for (int i = 1; i < 20; ++i) {
            other.lock()->socket_closed(1006, false);
            ASSERT_TRUE(tests::eventually([&] { return *connects_other == i + 1; }));
        }
        EXPECT_EQ(made_first, 1) << is_closed;
    }
}

TEST_F(SharpTest, TheEndOfAnEarlierConnectionOpensNone) {
    cWebSocketOptions options;
    options.maxReconnects = -1;
    options.firstReconnectWait = 0;
    m_socket->SetOptions(options);
    const auto connects = count_connects();
    m_socket->Open("ws://a", 0);
    const auto first = m_last;
    m_socket->Open("ws://b", 0);
    const auto second = m_last;
    first->owner.lock()->socket_closed(1005, false);
    // A loss of the second is made good, once: nothing else waits.
    second->owner.lock()->socket_closed(1006, false);
    ASSERT_TRUE(tests::eventually([&] { return *connects == 3; }));
    m_socket->Close();
    EXPECT_EQ(*connects, 3);
    EXPECT_EQ(second->calls, "connect");
}

TEST_F(SharpTest, AHandlerThatOpensAgainIsNotOpenedTwice) {
    cWebSocketOptions options;
    options.maxReconnects = -1;
    options.firstReconnectWait = 0;
    m_socket->SetOptions(options);
    m_socket->SetErrorHandler([this](cWebSocket::Error) { m_socket->Open("ws://b", 0); });
    m_socket->Open("ws://a", 0);
    owner()->socket_closed(1006, false);
    const auto second = m_last;
    EXPECT_EQ(second->calls, "connect");
    m_socket->Send("on the second");
    EXPECT_EQ(second->calls, "connect | text on the second");
    EXPECT_EQ(m_last, second);
}

TEST_F(SharpTest, CloseWhileItIsMadeConnectsNothing) {
    std::shared_ptr<told_managed_socket> made;
    current_managed_maker() = [&](const managed_request&, const std::weak_ptr<managed_owner>& to) {
        made = std::make_shared<told_managed_socket>(to);
        m_socket->Close();
        return made;
    };
    m_socket->Open("ws://a", 0);
    EXPECT_EQ(made->calls, "");
    m_socket->Send("nobody");
    EXPECT_EQ(made->calls, "");
    EXPECT_EQ(made->owner.lock(), nullptr);
}

TEST(BackOff, DoublesUpToTheLongestWait) {
    back_off waits(5, 1, 6);
    std::vector<long long> told;
    while (const auto wait = waits.next()) told.push_back(wait->count());
    EXPECT_EQ(told, (std::vector<long long>{1000, 2000, 4000, 6000, 6000}));
    waits.reset();
    EXPECT_EQ(waits.next()->count(), 1000);
}

TEST(BackOff, HasNoEndOnRequestAndNoneByDefault) {
    back_off endless(-1, 1, 60);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(endless.next());
    EXPECT_EQ(endless.next()->count(), 60'000);
    EXPECT_FALSE(back_off().next());
    EXPECT_EQ(back_off(1, -3, 1e300).next()->count(), 0);
}

TEST(DelayedWork, ThatIsCancelledDoesNotRun) {
    std::atomic<int> ran{0};
    {
        delayed_work work;
        work.start(std::chrono::hours(1), [&] { ++ran; });
        work.start(std::chrono::milliseconds(0), [&] { ++ran; });
        ASSERT_TRUE(tests::eventually([&] { return ran == 1; }));
        work.start(std::chrono::hours(1), [&] { ++ran; });
    }
    EXPECT_EQ(ran, 1);
}

TEST_F(SharpTest, ACopySharesTheConnectionAndOutlivesIt) {
    auto original = std::make_unique<cWebSocket_Sharp>(std::function<void(std::string)>());
    m_events.listen_to(*original);
    original->Open("ws://a", 0);
    cWebSocket_Sharp copy(*original);
    copy.Send("by the copy");
    EXPECT_EQ(m_last->calls, "connect | text by the copy");
    owner()->message_received("1", false);
    const auto late = owner();
    original.reset();
    late->message_received("2", false);
    EXPECT_EQ(m_events.text(), "message 1");
}

}  // namespace
}  // namespace pennywort::websocket
