// socket_lost_test_linux.cpp - a peer that is given up by the system. Only here a test can tell the
// system how soon that is.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "loam/socket.h"
#include "tests/loam/bounds.h"

namespace {

constexpr unsigned k_give_up_ms = 50;

// The number that the system gives to the next descriptor, which is the lowest that is free.
int next_descriptor() {
    const int next = ::dup(0);
    ::close(next);
    return next;
}

// Nobody accepts the connection, so its bytes are never taken, and what could not be sent for long
// enough ends it.
TEST(SocketLost, APeerThatTheSystemGivesUpIsLostAndNoTimeOut) {
    const std::unique_ptr<zSocket> listener(zSocket::Factory());
    ASSERT_EQ(listener->Open(0), 0);
    ASSERT_EQ(listener->BindTo("127.0.0.1", 0), 0);
    ASSERT_EQ(listener->Listen(1), 0);
    const std::unique_ptr<zSocket> socket(zSocket::Factory());
    const int descriptor = next_descriptor();
    ASSERT_EQ(socket->Open(0), 0);
    ASSERT_EQ(
        ::setsockopt(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &k_give_up_ms, sizeof k_give_up_ms),
        0);
    ASSERT_EQ(socket->Connect("127.0.0.1", listener->LocalPort(), k_long_ms), 0);
    const std::string much(1 << 20, 'x');
    // It waits for the first of the two to pass, which is the system's.
    for (int i = 0; i < 100; ++i) {
        const zStatus status = socket->Send(much.data(), 1 << 20, 0, k_long_ms);
        if (status == 0) continue;
        EXPECT_EQ(status, zSocket::k_lost);
        return;
    }
    FAIL() << "the peer took it all";
}

// The option of the accepted socket, which is the newest descriptor.
TEST(SocketLost, APeerThatIsSilentForLongIsAskedFor) {
    const std::unique_ptr<zSocket> listener(zSocket::Factory());
    ASSERT_EQ(listener->Open(0), 0);
    ASSERT_EQ(listener->BindTo("127.0.0.1", 0), 0);
    ASSERT_EQ(listener->Listen(1), 0);
    const std::unique_ptr<zSocket> socket(zSocket::Factory());
    ASSERT_EQ(socket->Open(0), 0);
    ASSERT_EQ(socket->Connect("127.0.0.1", listener->LocalPort(), k_long_ms), 0);
    const int descriptor = next_descriptor();
    zSocket* made = nullptr;
    ASSERT_EQ(listener->Accept(&made, 0), 0);
    const std::unique_ptr<zSocket> accepted(made);
    int value = 0;
    socklen_t size = sizeof value;
    ASSERT_EQ(::getsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &value, &size), 0);
    EXPECT_NE(value, 0);
}

}  // namespace
