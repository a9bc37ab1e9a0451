// socket_hint_test.cpp - bytes of zSocket that are announced to be followed by more.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "loam/socket.h"
#include "tests/loam/bounds.h"

namespace {

// A connection whose one end sends, and the other receives.
class HintTest : public testing::Test {
protected:
    HintTest() {
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

    std::unique_ptr<zSocket> m_far{zSocket::Factory()};
    std::unique_ptr<zSocket> m_near;
};

// The system sends it by itself when nothing follows.
TEST_F(HintTest, WhatWasAnnouncedArrivesAlthoughNothingFollows) {
    send_head();
    EXPECT_EQ(receive(4), "head");
}

TEST_F(HintTest, AHeadComesBeforeItsBody) {
    send_head();
    EXPECT_EQ(send("body"), 0);
    EXPECT_EQ(receive(8), "headbody");
    EXPECT_EQ(send("next"), 0);
    EXPECT_EQ(receive(4), "next");
}

TEST_F(HintTest, AHeadComesBeforeWhatThereIsRoomFor) {
    send_head();
    std::int32_t sent = 0;
    EXPECT_EQ(m_near->SendSome("body", 4, &sent), 0);
    EXPECT_EQ(sent, 4);
    EXPECT_EQ(receive(8), "headbody");
}

TEST_F(HintTest, ALongPieceComesWhole) {
    const std::string body(1 << 20, 'b');
    send_head();
    EXPECT_EQ(send(body), 0);
    EXPECT_EQ(receive(4 + body.size()), "head" + body);
}

TEST_F(HintTest, AHeadIsSentByTheEnd) {
    send_head();
    m_near.reset();
    EXPECT_EQ(receive(4), "head");
}

}  // namespace
