// tests/host/page_feed_test.cpp - messages on their way from a socket to a page, neither of which
// is there.
#include "host/ws/page_feed.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/limits.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/fake_clock.h"

namespace pennywort::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class told_socket final : public cWebSocket {
public:
    void Open(const char*, double) override { ++opens; }
    void Send(const char*) override {}
    void Close() override { ++closes; }
    void SendPing() override {}

    using cWebSocket::ReceiveMessage;
    using cWebSocket::SignalError;
    using cWebSocket::SocketClosed;
    using cWebSocket::SocketOpened;

    int opens = 0;
    int closes = 0;
};

class PageFeed : public testing::Test {
protected:
    struct handed {
        std::string body;
        std::function<void(const std::string&)> answer;
    };

    void make(feed_kind kind) {
        m_feed = std::make_unique<page_feed>(
            m_options, kind, m_socket,
            [this](page_feed::saying, const std::string& line) { m_lines.push_back(line); });
        m_feed->open();
    }
    void step(bool takes_messages = true) {
        m_feed->step(m_clock.now(), takes_messages,
                     [this](const std::string& body, std::function<void(const std::string&)> back) {
                         m_handed.push_back({body, std::move(back)});
                         return m_has_page;
                     });
    }
    // Without the question about the script, which comes first.
    std::size_t messages_handed() const { return m_handed.empty() ? 0 : m_handed.size() - 1; }
    bool handed_message(std::size_t number, const std::string& literal) const {
        return m_handed.at(number + 1).body.find("const message = " + literal + ";") == 0;
    }

    tests::fake_clock m_clock;
    const feed_options m_options{"ws://a/", "show(message)", "--on-message", seconds(30)};
    const std::shared_ptr<told_socket> m_socket = std::make_shared<told_socket>();
    std::vector<std::string> m_lines;
    std::vector<handed> m_handed;
    bool m_has_page = true;
    std::unique_ptr<page_feed> m_feed;
};

TEST_F(PageFeed, MessagesWaitForThePageAndKeepTheirOrder) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    m_socket->ReceiveMessage("one");
    m_socket->ReceiveMessage("two \"quoted\" \\ \n");
    step(false);
    EXPECT_TRUE(m_handed.empty());
    EXPECT_TRUE(m_feed->has_opened());
    step();
    ASSERT_EQ(messages_handed(), 2u);
    EXPECT_TRUE(handed_message(0, "\"one\""));
    EXPECT_TRUE(handed_message(1, "\"two \\\"quoted\\\" \\\\ \\n\""));
    step();
    EXPECT_EQ(messages_handed(), 2u);
    EXPECT_EQ(m_lines, std::vector<std::string>{"feed ws://a/: opened"});
}

TEST_F(PageFeed, APageThatDoesNotAnswerGetsNoMoreUntilItsTimeIsOver) {
    make(feed_kind::for_ever);
    m_socket->SocketOpened();
    for (int i = 0; i < 200; ++i) m_socket->ReceiveMessage("m");
    step();
    const std::size_t most = messages_handed();
    EXPECT_LT(most, 100u);
    step();
    EXPECT_EQ(messages_handed(), most);
    m_handed[1].answer("fine undefined");
    step();
    EXPECT_EQ(messages_handed(), most + 1);
    m_clock.advance(seconds(6));
    step();
    EXPECT_EQ(messages_handed(), 2 * most + 1);
}

TEST_F(PageFeed, APageThatIsLeftOwesNoAnswers) {
    make(feed_kind::for_ever);
    m_socket->SocketOpened();
    for (int i = 0; i < 200; ++i) m_socket->ReceiveMessage("m");
    step();
    const std::size_t most = messages_handed();
    step(false);
    step();
    EXPECT_EQ(messages_handed(), 2 * most);
}

TEST_F(PageFeed, TheOldestMessagesAreDroppedWhenTooManyWait) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    m_socket->ReceiveMessage("first");
    m_socket->ReceiveMessage("second");
    m_socket->ReceiveMessage("third");
    for (std::size_t i = 3; i < k_max_feed_messages + 2; ++i) m_socket->ReceiveMessage("more");
    step();
    EXPECT_TRUE(handed_message(0, "\"third\""));
    ASSERT_EQ(m_lines.size(), 2u);
    EXPECT_EQ(m_lines[1], "feed ws://a/: 2 messages dropped: the page does not keep up");
}

TEST_F(PageFeed, NoMoreBytesWaitThanTheLimit) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    const std::string half(k_max_feed_bytes / 2 + 1, 'x');
    m_socket->ReceiveMessage(half.c_str());
    m_socket->ReceiveMessage(half.c_str());
    step();
    EXPECT_EQ(messages_handed(), 1u);
    EXPECT_EQ(m_lines.back(), "feed ws://a/: 1 messages dropped: the page does not keep up");
}

TEST_F(PageFeed, OnceALossIsAFailureAndAGoodbyeIsNone) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    m_socket->SocketClosed(std::nullopt, true);
    step();
    EXPECT_FALSE(m_feed->has_failed());
    EXPECT_EQ(m_lines.back(), "feed ws://a/: closed");
    m_socket->SignalError(cWebSocket::Error::AbnormalClosure);
    step();
    EXPECT_EQ(m_feed->failure(),
              "feed ws://a/: error 5: no connection, or one that ended without a goodbye");
    m_clock.advance(seconds(100));
    step();
    EXPECT_EQ(m_socket->opens, 1);
}

TEST_F(PageFeed, OnceAGoodbyeThatComesFirstIsAFailure) {
    make(feed_kind::once);
    m_socket->SocketClosed(std::nullopt, true);
    step();
    EXPECT_EQ(m_feed->failure(), "feed ws://a/: closed");
}

TEST_F(PageFeed, ForEverItIsOpenedAgainAfterLongerAndLongerWaits) {
    make(feed_kind::for_ever);
    int opens = 1;
    for (const int wait : {1, 2, 4, 8, 16, 30, 30}) {
        m_socket->SocketClosed(std::nullopt, false);
        step();
        m_clock.advance(seconds(wait) - milliseconds(1));
        step();
        EXPECT_EQ(m_socket->opens, opens) << wait;
        m_clock.advance(milliseconds(1));
        step();
        EXPECT_EQ(m_socket->opens, ++opens) << wait;
    }
    EXPECT_EQ(m_lines[1],
              "feed ws://a/: closed, not cleanly (--verbose says why); next attempt in 2 s");
    EXPECT_FALSE(m_feed->has_failed());
    m_socket->SocketOpened();
    step();
    m_socket->SocketClosed(std::nullopt, true);
    step();
    EXPECT_EQ(m_lines.back(), "feed ws://a/: closed; next attempt in 1 s");
}

TEST_F(PageFeed, OneEndThatIsToldTwiceIsOne) {
    make(feed_kind::for_ever);
    m_socket->SignalError(cWebSocket::Error::LibraryError);
    m_socket->SignalError(cWebSocket::Error::AbnormalClosure);
    step();
    EXPECT_EQ(m_lines.size(), 1u);
}

TEST_F(PageFeed, AScriptThatIsNoneFailsOnceAndIsToldForEver) {
    for (const feed_kind kind : {feed_kind::once, feed_kind::for_ever}) {
        m_lines.clear();
        m_handed.clear();
        make(kind);
        m_socket->SocketOpened();
        step();
        ASSERT_EQ(m_handed.size(), 1u);
        m_handed[0].answer("2 SyntaxError: bad");
        EXPECT_EQ(m_feed->has_failed(), kind == feed_kind::once);
        const std::string told = kind == feed_kind::once ? m_feed->failure() : m_lines.back();
        EXPECT_EQ(told, "--on-message:1: SyntaxError: bad");
        m_socket->ReceiveMessage("m");
        step();
        EXPECT_EQ(messages_handed(), 0u);
    }
}

TEST_F(PageFeed, APageThatForbidsTheQuestionGetsTheMessages) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    step();
    m_handed[0].answer("blocked");
    m_socket->ReceiveMessage("m");
    step();
    EXPECT_EQ(messages_handed(), 1u);
}

TEST_F(PageFeed, WhatTheScriptThrowsIsTold) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    m_socket->ReceiveMessage("m");
    step();
    m_handed[1].answer("throws 2 TypeError: no");
    EXPECT_EQ(m_lines.back(), "--on-message:1: TypeError: no");
    EXPECT_FALSE(m_feed->has_failed());
}

TEST_F(PageFeed, AnAnswerThatComesTooLateFindsNobody) {
    make(feed_kind::once);
    m_socket->SocketOpened();
    m_socket->ReceiveMessage("m");
    step();
    m_feed.reset();
    EXPECT_EQ(m_socket->closes, 1);
    m_handed[0].answer("2 SyntaxError: bad");
    m_handed[1].answer("throws 2 TypeError: no");
    m_socket->ReceiveMessage("nobody");
    EXPECT_EQ(m_lines.size(), 1u);
}

TEST(FeedOptions, BelongTogether) {
    feed_options options;
    EXPECT_EQ(take_feed("", "", options), "");
    EXPECT_EQ(options.url, "");
    EXPECT_NE(take_feed("ws://a/", "", options).find("--on-message"), std::string::npos);
    EXPECT_NE(take_feed("", "f()", options).find("--feed"), std::string::npos);
    EXPECT_NE(take_feed("http://a/", "f()", options).find("http://a/"), std::string::npos);
    EXPECT_EQ(take_feed("WSS://a/", "f()", options), "");
    EXPECT_EQ(options.script, "f()");
}

TEST(FeedOptions, AnAtNamesAFile) {
    const temporary_folder folder;
    folder.write("goal.js", "show(message)\n");
    feed_options options;
    EXPECT_EQ(take_feed("ws://a/", "@" + folder.path("goal.js"), options), "");
    EXPECT_EQ(options.script, "show(message)\n");
    EXPECT_EQ(options.script_name, folder.path("goal.js"));
    EXPECT_NE(take_feed("ws://a/", "@missing.js", options).find("missing.js"), std::string::npos);
}

}  // namespace
}  // namespace pennywort::host
