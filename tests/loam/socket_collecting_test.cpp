// socket_collecting_test.cpp - zSocket's pieces that wait for the next one.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "loam/socket.h"
#include "loam/thread.h"

namespace {

constexpr std::int32_t k_long_ms = 30000;  // a bound for what comes at once

// A connection whose one end collects, and the other receives.
class CollectingTest : public testing::Test {
protected:
    CollectingTest() {
        const std::unique_ptr<zSocket> listener(zSocket::Factory());
        EXPECT_EQ(listener->Open(0), 0);
        EXPECT_EQ(listener->BindTo("127.0.0.1", 0), 0);
        EXPECT_EQ(listener->Listen(1), 0);
        EXPECT_EQ(m_far->Open(0), 0);
        EXPECT_EQ(m_far->Connect("127.0.0.1", listener->LocalPort(), k_long_ms), 0);
        EXPECT_TRUE(wait(*listener));
        zSocket* accepted = nullptr;
        EXPECT_EQ(listener->Accept(&accepted, 0), 0);
        m_near.reset(accepted);
        m_near->BeginCollecting(&m_pieces);
    }

    static bool wait(zSocket& socket) {
        _zSocket_select entry{&socket, zSocket::k_readable, 0};
        zHeap<_zSocket_select*> set;
        set.Add(&entry);
        std::int32_t ready = 0;
        return zSocket::Select(&set, k_long_ms, &ready) == 0 && ready == 1;
    }

    zStatus send(const std::string& text) {
        return m_near->Send(text.data(), static_cast<std::int32_t>(text.size()), 0, k_long_ms);
    }

    void send_head() {
        m_near->MoreFollows();
        EXPECT_EQ(send("head"), 0);
        EXPECT_EQ(m_pieces, "head");
    }

    std::string receive(std::size_t count) {
        std::string all;
        while (all.size() < count && wait(*m_far)) {
            char bytes[65536];
            std::int32_t received = 0;
            if (m_far->Receive(bytes, sizeof bytes, &received) != 0 || received == 0) break;
            all.append(bytes, static_cast<std::size_t>(received));
        }
        return all;
    }

    // Whatever `step` does sends the head and leaves nothing to wait.
    void expect_head_by(const std::function<void()>& step) {
        send_head();
        step();
        EXPECT_EQ(receive(4), "head");
        EXPECT_EQ(m_pieces, "");
    }

    std::string m_pieces;
    std::unique_ptr<zSocket> m_far{zSocket::Factory()};
    std::unique_ptr<zSocket> m_near;
};

TEST_F(CollectingTest, APieceThatWasNotAnnouncedDoesNotWait) {
    EXPECT_EQ(send("one"), 0);
    EXPECT_EQ(m_pieces, "");
    EXPECT_EQ(receive(3), "one");
}

TEST_F(CollectingTest, NothingWaitsWithoutAPlaceToWait) {
    EXPECT_EQ(m_near->EndCollecting(k_long_ms), 0);
    m_near->MoreFollows();
    EXPECT_EQ(send("head"), 0);
    EXPECT_EQ(receive(4), "head");
}

TEST_F(CollectingTest, AHeadGoesWithItsBody) {
    send_head();
    EXPECT_EQ(send("body"), 0);
    EXPECT_EQ(m_pieces, "");
    EXPECT_EQ(receive(8), "headbody");
    EXPECT_EQ(send("next"), 0);
    EXPECT_EQ(receive(4), "next");
}

TEST_F(CollectingTest, SeveralPiecesMayWait) {
    send_head();
    m_near->MoreFollows();
    EXPECT_EQ(send("neck"), 0);
    EXPECT_EQ(m_pieces, "headneck");
    EXPECT_EQ(send("body"), 0);
    EXPECT_EQ(receive(12), "headneckbody");
}

TEST_F(CollectingTest, AnEmptyPieceIsNoneAndTakesTheAnnouncementWithIt) {
    m_near->MoreFollows();
    EXPECT_EQ(send(""), 0);
    EXPECT_EQ(send("body"), 0);
    EXPECT_EQ(m_pieces, "");
    EXPECT_EQ(receive(4), "body");
}

TEST_F(CollectingTest, ALongPieceGoesBehindItsHead) {
    const std::string body(1 << 20, 'b');
    send_head();
    EXPECT_EQ(send(body), 0);
    EXPECT_EQ(receive(4 + body.size()), "head" + body);
}

TEST_F(CollectingTest, WhatWaitsDoesNotGrowWithoutEnd) {
    const std::string piece(1000, 'p');
    for (int i = 0; i < 1000; ++i) {
        m_near->MoreFollows();
        ASSERT_EQ(send(piece), 0);
        ASSERT_LE(m_pieces.size(), 16u * 1024);
    }
    EXPECT_EQ(m_near->EndCollecting(k_long_ms), 0);
    EXPECT_EQ(receive(1000000), std::string(1000000, 'p'));
}

TEST_F(CollectingTest, GoesWithWhatIsSentAsFarAsThereIsRoom) {
    send_head();
    std::int32_t sent = 0;
    EXPECT_EQ(m_near->SendSome("body", 4, &sent), 0);
    EXPECT_EQ(sent, 4);
    EXPECT_EQ(receive(8), "headbody");
}

TEST_F(CollectingTest, IsSentByEverythingThatNeedsItGone) {
    expect_head_by([&] { EXPECT_EQ(m_near->EndCollecting(k_long_ms), 0); });
    m_near->BeginCollecting(&m_pieces);
    expect_head_by([&] {
        char byte = 0;
        std::int32_t received = 0;
        EXPECT_EQ(m_near->Receive(&byte, 1, &received), zSocket::k_not_now);
    });
    expect_head_by([&] {
        std::int32_t sent = 0;
        EXPECT_EQ(m_near->SendSome(nullptr, 0, &sent), 0);
    });
    expect_head_by([&] { EXPECT_EQ(m_near->EndSending(), 0); });
}

TEST_F(CollectingTest, IsSentByTheEnd) {
    expect_head_by([&] { m_near.reset(); });
}

TEST_F(CollectingTest, IsLostByAReset) {
    send_head();
    m_near->Reset();
    EXPECT_EQ(m_pieces, "");
    EXPECT_EQ(receive(4), "");
}

// Without room, what waits goes on waiting, and nothing behind it overtakes it.
TEST_F(CollectingTest, KeepsItsPlaceWhereThereIsNoRoom) {
    const std::string much(1 << 20, 'x');
    std::size_t before = 0;
    std::int32_t sent = 0;
    for (int i = 0; i < 3; ++i) {
        while (m_near->SendSome(much.data(), 1 << 20, &sent) == 0) {
            before += static_cast<std::size_t>(sent);
        }
        zThread::MicroSleep(100000);
    }
    send_head();
    const zStatus status = m_near->SendSome("body", 4, &sent);
    const std::size_t rest = status == 0 ? static_cast<std::size_t>(sent) : 0;
    const std::string all = receive(before);
    if (status != 0) {
        EXPECT_EQ(status, zSocket::k_not_now);
        EXPECT_EQ(m_near->EndCollecting(k_long_ms), 0);
    }
    EXPECT_EQ(all + receive(4 + rest),
              std::string(before, 'x') + std::string("headbody", 4 + rest));
}

}  // namespace
