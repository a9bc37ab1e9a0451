// socket_test.cpp - zSocket, the wait for many of them, zSocketWaker and zHeap.
#include "loam/socket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "loam/heap.h"
#include "loam/thread.h"
#include "tests/loam/bounds.h"
#include "tests/loam/wine.h"
#include "tests/support/eventually.h"

namespace {

constexpr std::int32_t k_short_ms = 20;     // a bound that is meant to pass
constexpr std::int32_t k_settled_ms = 500;  // longer than the system waits before it tries again

using socket_ptr = std::unique_ptr<zSocket>;

socket_ptr make_socket() { return socket_ptr(zSocket::Factory()); }

socket_ptr make_listener(const char* address = "127.0.0.1") {
    socket_ptr listener = make_socket();
    EXPECT_EQ(listener->Open(0), 0);
    EXPECT_EQ(listener->SetReuseAddress(), 0);
    EXPECT_EQ(listener->BindTo(address, 0), 0);
    EXPECT_EQ(listener->Listen(3), 0);
    return listener;
}

bool wait_for(zSocket& socket, std::int32_t events, std::int32_t timeout = k_long_ms) {
    _zSocket_select entry{&socket, events, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    std::int32_t ready = -1;
    EXPECT_EQ(zSocket::Select(&set, timeout, &ready), 0);
    EXPECT_EQ(ready, entry.occurred != 0 ? 1 : 0);
    return entry.occurred == events;
}

socket_ptr accept_one(zSocket& listener) {
    EXPECT_TRUE(wait_for(listener, zSocket::k_readable));
    zSocket* accepted = nullptr;
    EXPECT_EQ(listener.Accept(&accepted, 0), 0);
    return socket_ptr(accepted);
}

struct connected_pair {
    explicit connected_pair(const char* address = "127.0.0.1") {
        const socket_ptr listener = make_listener(address);
        EXPECT_EQ(near->Open(0), 0);
        EXPECT_EQ(near->Connect(address, listener->LocalPort(), k_long_ms), 0);
        far = accept_one(*listener);
    }

    socket_ptr near = make_socket();
    socket_ptr far;
};

std::string receive(zSocket& socket, std::size_t count) {
    std::string all;
    while (all.size() < count && wait_for(socket, zSocket::k_readable)) {
        char bytes[4096];
        std::int32_t received = 0;
        if (socket.Receive(bytes, sizeof bytes, &received) != 0 || received == 0) break;
        all.append(bytes, static_cast<std::size_t>(received));
    }
    return all;
}

// Sends what there is room for now; whether that was anything.
bool fill_once(zSocket& socket) {
    const std::string much(1 << 20, 'x');
    std::int32_t sent = 0;
    bool any = false;
    while (socket.SendSome(much.data(), 1 << 20, &sent) == 0) any = true;
    return any;
}

// Sends until no room is left, and none is made for a while: the system moves what it holds on to
// the other side, and makes room by that, for some time after it first had none. A wait for room
// does not tell, since it ends only where there is much of it.
void fill(zSocket& socket) {
    while (fill_once(socket)) zThread::MicroSleep(k_settled_ms * 1000);
}

// Whether `holds` without room: again where the system has made some in between.
bool once_full(zSocket& socket, const std::function<bool()>& holds) {
    return pennywort::tests::eventually([&] {
        fill(socket);
        return holds();
    });
}

class worker : public zThreadMain {
public:
    explicit worker(std::function<void()> work) : m_work(std::move(work)) {}
    zStatus Main(std::int32_t, const char* const*) override {
        m_work();
        return 0;
    }

private:
    std::function<void()> m_work;
};

TEST(Socket, ThatIsNotOpenRefusesEverything) {
    const socket_ptr socket = make_socket();
    zSocket* accepted = socket.get();
    char byte = 0;
    std::int32_t count = -1;
    EXPECT_FALSE(socket->IsOpen());
    EXPECT_LT(socket->SetReuseAddress(), 0);
    EXPECT_LT(socket->SetExclusiveAddress(), 0);
    EXPECT_LT(socket->Bind(0), 0);
    EXPECT_LT(socket->Listen(1), 0);
    EXPECT_LT(socket->Accept(&accepted, 0), 0);
    EXPECT_EQ(accepted, nullptr);
    EXPECT_LT(socket->Receive(&byte, 1, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_LT(socket->Send("a", 1, 0, k_short_ms), 0);
    EXPECT_LT(socket->SendSome("a", 1, &count), 0);
    EXPECT_LT(socket->Connect("127.0.0.1", 1, k_short_ms), 0);
    EXPECT_LT(socket->EndSending(), 0);
    EXPECT_EQ(socket->LocalPort(), 0);
    EXPECT_FALSE(socket->IsNoDelay());
    socket->Reset();
    socket->Close();
}

TEST(Socket, RefusesArgumentsThatAreNone) {
    connected_pair pair;
    std::int32_t count = 0;
    char byte = 0;
    EXPECT_LT(make_socket()->Open(1), 0);
    EXPECT_LT(pair.near->Receive(nullptr, 1, &count), 0);
    EXPECT_LT(pair.near->Receive(&byte, 0, &count), 0);
    EXPECT_LT(pair.near->Receive(&byte, 1, nullptr), 0);
    EXPECT_LT(pair.near->Send(nullptr, 1, 0, k_short_ms), 0);
    EXPECT_LT(pair.near->Send("a", -1, 0, k_short_ms), 0);
    EXPECT_LT(pair.near->SendSome("a", 1, nullptr), 0);
    EXPECT_LT(pair.near->Accept(nullptr, 0), 0);
    EXPECT_EQ(pair.near->Send(nullptr, 0, 0, k_short_ms), 0);
}

TEST(Socket, TakesNumericAddressesOnly) {
    const socket_ptr socket = make_socket();
    ASSERT_EQ(socket->Open(0), 0);
    for (const char* address : {"localhost", "127.0.0", "127.0.0.1:80", "::g", "[::1]"}) {
        EXPECT_LT(socket->BindTo(address, 0), 0) << address;
        EXPECT_LT(socket->Connect(address, 80, k_short_ms), 0) << address;
    }
}

TEST(Socket, TellsAPortThatIsTaken) {
    const socket_ptr first = make_socket();
    ASSERT_EQ(first->Open(0), 0);
    ASSERT_EQ(first->SetExclusiveAddress(), 0);
    ASSERT_EQ(first->BindTo("127.0.0.1", 0), 0);
    ASSERT_EQ(first->Listen(3), 0);
    const socket_ptr second = make_socket();
    ASSERT_EQ(second->Open(0), 0);
    ASSERT_EQ(second->SetReuseAddress(), 0);
    EXPECT_EQ(second->BindTo("127.0.0.1", first->LocalPort()), zSocket::k_address_in_use);
}

// The side that ends a connection first is the one that remembers it. In between another program
// may be given the port, for once.
TEST(Socket, TakesAPortWhoseOldConnectionsAreRemembered) {
    EXPECT_TRUE(pennywort::tests::eventually([] {
        socket_ptr listener = make_listener();
        const std::uint16_t port = listener->LocalPort();
        const socket_ptr client = make_socket();
        EXPECT_EQ(client->Open(0), 0);
        EXPECT_EQ(client->Connect("127.0.0.1", port, k_long_ms), 0);
        accept_one(*listener)->Close();
        EXPECT_TRUE(wait_for(*client, zSocket::k_readable));
        listener.reset();
        const socket_ptr again = make_socket();
        EXPECT_EQ(again->Open(0), 0);
        EXPECT_EQ(again->SetReuseAddress(), 0);
        return again->Bind(port) == 0 && again->Listen(3) == 0 && again->LocalPort() == port;
    }));
}

TEST(Socket, FailsToConnectWhereNobodyListens) {
    const socket_ptr socket = make_socket();
    ASSERT_EQ(socket->Open(0), 0);
    EXPECT_LT(socket->Connect("127.0.0.1", 1, k_long_ms), 0);
}

TEST(Socket, HasNothingToReceiveOrAcceptBeforeItComes) {
    const socket_ptr listener = make_listener();
    zSocket* accepted = nullptr;
    EXPECT_EQ(listener->Accept(&accepted, 0), zSocket::k_not_now);
    connected_pair pair;
    char byte = 0;
    std::int32_t count = -1;
    EXPECT_EQ(pair.near->Receive(&byte, 1, &count), zSocket::k_not_now);
    EXPECT_EQ(count, 0);
}

TEST(Socket, TimesOutWhereThePeerTakesNothing) {
    connected_pair pair;
    EXPECT_TRUE(once_full(*pair.near, [&] {
        std::int32_t sent = -1;
        return pair.near->Send("a", 1, 0, k_short_ms) == zSocket::k_timed_out &&
               pair.near->Send("a", 1, 0, 0) == zSocket::k_timed_out &&
               pair.near->SendSome("a", 1, &sent) == zSocket::k_not_now && sent == 0;
    }));
}

// Windows calls such a peer hung up, which is no room to send.
TEST(Socket, TimesOutWhereThePeerTakesNothingAndHasEndedItsSending) {
    connected_pair pair;
    fill(*pair.near);
    ASSERT_EQ(pair.far->EndSending(), 0);
    ASSERT_TRUE(wait_for(*pair.near, zSocket::k_readable));
    EXPECT_TRUE(once_full(*pair.near, [&] {
        return pair.near->Send("a", 1, 0, k_short_ms) == zSocket::k_timed_out &&
               pair.near->Send("a", 1, 0, 0) == zSocket::k_timed_out;
    }));
}

TEST(Socket, TellsAConnectionThatWasReset) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine ends a connection in order before it resets it";
    connected_pair pair;
    pair.far->Reset();
    EXPECT_FALSE(pair.far->IsOpen());
    ASSERT_TRUE(wait_for(*pair.near, zSocket::k_readable));
    char byte = 0;
    std::int32_t count = -1;
    EXPECT_EQ(pair.near->Receive(&byte, 1, &count), zSocket::k_lost);
    EXPECT_EQ(pair.near->Send("a", 1, 0, k_short_ms), zSocket::k_lost);
}

TEST(Socket, ReceivesNothingWithSuccessAtTheEnd) {
    connected_pair pair;
    ASSERT_EQ(pair.far->EndSending(), 0);
    ASSERT_TRUE(wait_for(*pair.near, zSocket::k_readable));
    char byte = 0;
    std::int32_t count = -1;
    EXPECT_EQ(pair.near->Receive(&byte, 1, &count), 0);
    EXPECT_EQ(count, 0);
    // The other way still works.
    EXPECT_EQ(pair.near->Send("ab", 2, 0, k_long_ms), 0);
    EXPECT_EQ(receive(*pair.far, 2), "ab");
}

TEST(Socket, CarriesBytesBothWays) {
    connected_pair pair;
    EXPECT_EQ(pair.near->Send("a\0b", 3, 0, k_long_ms), 0);
    EXPECT_EQ(receive(*pair.far, 3), std::string("a\0b", 3));
    EXPECT_EQ(pair.far->Send("c", 1, 0, k_long_ms), 0);
    EXPECT_EQ(receive(*pair.near, 1), "c");
}

TEST(Socket, ReceivesWhatTheBufferTakesAndNoMore) {
    connected_pair pair;
    EXPECT_EQ(pair.near->Send("abcdef", 6, 0, k_long_ms), 0);
    ASSERT_TRUE(wait_for(*pair.far, zSocket::k_readable));
    char bytes[8] = "-------";
    std::int32_t received = 0;
    EXPECT_EQ(pair.far->Receive(bytes, 4, &received), 0);
    EXPECT_EQ(received, 4);
    EXPECT_STREQ(bytes, "abcd---");
    EXPECT_EQ(pair.far->Receive(bytes, 4, &received), 0);
    EXPECT_EQ(received, 2);
    EXPECT_STREQ(bytes, "efcd---");
}

// Each wait for room is short here, and all of them together are not.
TEST(Socket, TimesOutWhereThePeerTakesItTooSlowly) {
    constexpr std::int32_t k_timeout_ms = 200;
    constexpr std::int32_t k_pause_us = 10000;
    connected_pair pair;
    std::atomic<bool> is_done{false};
    // A quarter of a megabyte at once takes seconds for what is sent.
    const std::string much(64 << 20, 'm');
    worker slow([&] {
        std::vector<char> bytes(256 << 10);
        std::int32_t received = 0;
        while (!is_done) {
            pair.far->Receive(bytes.data(), static_cast<std::int32_t>(bytes.size()), &received);
            zThread::MicroSleep(k_pause_us);
        }
    });
    const std::unique_ptr<zThread> thread(zThread::Factory("slow", &slow, 0, 4));
    EXPECT_EQ(pair.near->Send(much.data(), static_cast<std::int32_t>(much.size()), 0, k_timeout_ms),
              zSocket::k_timed_out);
    is_done = true;
    thread->Join();
}

TEST(Socket, SendsMoreThanThereIsRoomForAsThePeerTakesIt) {
    connected_pair pair;
    const std::string much(20 << 20, 'm');
    zStatus status = -1;
    worker sender([&] {
        status = pair.near->Send(much.data(), static_cast<std::int32_t>(much.size()), 0, k_long_ms);
    });
    const std::unique_ptr<zThread> thread(zThread::Factory("sender", &sender, 0, 4));
    EXPECT_EQ(receive(*pair.far, much.size()).size(), much.size());
    thread->Join();
    EXPECT_EQ(status, 0);
}

TEST(Socket, SendsWithoutDelayOnceAccepted) {
    connected_pair pair;
    EXPECT_TRUE(pair.far->IsNoDelay());
    EXPECT_EQ(pair.far->SetNoDelay(false), 0);
    EXPECT_FALSE(pair.far->IsNoDelay());
}

TEST(Socket, SpeaksBothFamiliesOnOnePort) {
    const socket_ptr listener = make_listener(nullptr);
    for (const char* address : {"127.0.0.1", "::1"}) {
        const socket_ptr client = make_socket();
        ASSERT_EQ(client->Open(0), 0);
        const zStatus status = client->Connect(address, listener->LocalPort(), k_long_ms);
        if (status != 0 && address == std::string("::1")) GTEST_SKIP() << "no IPv6 here";
        ASSERT_EQ(status, 0) << address;
        const socket_ptr accepted = accept_one(*listener);
        EXPECT_EQ(accepted->Send("a", 1, 0, k_long_ms), 0);
        EXPECT_EQ(receive(*client, 1), "a");
    }
}

TEST(Socket, MayBeOpenedAgain) {
    const socket_ptr listener = make_listener();
    const socket_ptr client = make_socket();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(client->Open(0), 0);
        ASSERT_EQ(client->Connect("127.0.0.1", listener->LocalPort(), k_long_ms), 0);
        EXPECT_NE(accept_one(*listener), nullptr);
    }
}

TEST(Select, RefusesNull) {
    zHeap<_zSocket_select*> set;
    std::int32_t ready = 0;
    EXPECT_LT(zSocket::Select(nullptr, 0, &ready), 0);
    EXPECT_LT(zSocket::Select(&set, 0, nullptr), 0);
}

TEST(Select, OfNothingPassesItsTime) {
    zHeap<_zSocket_select*> set;
    std::int32_t ready = -1;
    EXPECT_EQ(zSocket::Select(&set, k_short_ms, &ready), 0);
    EXPECT_EQ(ready, 0);
}

TEST(Select, PassesOverWhatCannotBeWaitedFor) {
    connected_pair pair;
    pair.far->Send("a", 1, 0, k_long_ms);
    ASSERT_TRUE(wait_for(*pair.near, zSocket::k_readable));
    const socket_ptr closed = make_socket();
    _zSocket_select nothing{nullptr, zSocket::k_readable, 77};
    _zSocket_select not_open{closed.get(), zSocket::k_readable, 77};
    _zSocket_select not_asked{pair.near.get(), 0, 77};
    zHeap<_zSocket_select*> set;
    for (auto* entry : {&nothing, &not_open, &not_asked}) set.Add(entry);
    std::int32_t ready = -1;
    EXPECT_EQ(zSocket::Select(&set, k_short_ms, &ready), 0);
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(nothing.occurred, 0);
    EXPECT_EQ(not_open.occurred, 0);
    EXPECT_EQ(not_asked.occurred, 0);
}

TEST(Select, FillsEveryEntry) {
    connected_pair one;
    connected_pair other;
    one.far->Send("a", 1, 0, k_long_ms);
    ASSERT_TRUE(wait_for(*one.near, zSocket::k_readable));
    constexpr std::int32_t k_both = zSocket::k_readable | zSocket::k_writable;
    _zSocket_select entries[] = {{one.near.get(), zSocket::k_readable, 77},
                                 {other.near.get(), zSocket::k_readable, 77},
                                 {other.near.get(), k_both, 77},
                                 {one.near.get(), k_both, 77}};
    zHeap<_zSocket_select*> set;
    for (auto& entry : entries) set.Add(&entry);
    std::int32_t ready = -1;
    EXPECT_EQ(zSocket::Select(&set, k_long_ms, &ready), 0);
    EXPECT_EQ(ready, 3);
    EXPECT_EQ(entries[0].occurred, zSocket::k_readable);
    EXPECT_EQ(entries[1].occurred, 0);
    EXPECT_EQ(entries[2].occurred, zSocket::k_writable);
    EXPECT_EQ(entries[3].occurred, k_both);
}

TEST(Select, TellsThatThereIsNoRoomToSend) {
    connected_pair pair;
    EXPECT_TRUE(wait_for(*pair.near, zSocket::k_writable));
    EXPECT_TRUE(once_full(*pair.near,
                          [&] { return !wait_for(*pair.near, zSocket::k_writable, k_short_ms); }));
}

TEST(Select, TellsThatThereIsNoRoomToSendToAPeerThatHasEndedItsSending) {
    connected_pair pair;
    fill(*pair.near);
    ASSERT_EQ(pair.far->EndSending(), 0);
    ASSERT_TRUE(wait_for(*pair.near, zSocket::k_readable));
    EXPECT_TRUE(once_full(*pair.near, [&] {
        return !wait_for(*pair.near, zSocket::k_writable, k_short_ms) &&
               !wait_for(*pair.near, zSocket::k_writable, 0);
    }));
    // What the peer takes makes room.
    worker reader([&] { receive(*pair.far, std::size_t{1} << 30); });
    const std::unique_ptr<zThread> thread(zThread::Factory("reader", &reader, 0, 4));
    EXPECT_TRUE(wait_for(*pair.near, zSocket::k_writable));
    pair.near->EndSending();
    thread->Join();
}

TEST(Select, TellsALossWhateverIsAskedFor) {
    connected_pair pair;
    fill(*pair.near);
    pair.far->Reset();
    EXPECT_TRUE(wait_for(*pair.near, zSocket::k_writable));
    EXPECT_TRUE(wait_for(*pair.near, zSocket::k_readable));
}

TEST(SocketWaker, EndsTheNextWaitOnceHoweverOftenItWasCalled) {
    const std::unique_ptr<zSocketWaker> waker(zSocketWaker::Factory());
    ASSERT_NE(waker, nullptr);
    for (int i = 0; i < 1000; ++i) waker->Wake();
    zHeap<_zSocket_select*> set;
    std::int32_t ready = -1;
    EXPECT_EQ(zSocket::Select(&set, zSocket::k_no_time_out, &ready, waker.get()), 0);
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(zSocket::Select(&set, k_short_ms, &ready, waker.get()), 0);
    EXPECT_EQ(ready, 0);
}

TEST(SocketWaker, EndsAWaitOfAnotherThread) {
    const std::unique_ptr<zSocketWaker> waker(zSocketWaker::Factory());
    const socket_ptr listener = make_listener();
    worker waiting([&] {
        _zSocket_select entry{listener.get(), zSocket::k_readable, 0};
        zHeap<_zSocket_select*> set;
        set.Add(&entry);
        std::int32_t ready = -1;
        EXPECT_EQ(zSocket::Select(&set, zSocket::k_no_time_out, &ready, waker.get()), 0);
        EXPECT_EQ(ready, 0);
    });
    const std::unique_ptr<zThread> thread(zThread::Factory("waiting", &waiting, 0, 4));
    zThread::MicroSleep(1000);
    waker->Wake();
    thread->Join();
}

TEST(Heap, KeepsItsOrderAsItGrowsAndShrinks) {
    zHeap<int> heap;
    EXPECT_EQ(heap.Count(), 0);
    for (int i = 0; i < 100; ++i) heap.Add(i);
    EXPECT_EQ(heap.Count(), 100);
    EXPECT_GE(heap.Capacity(), 100);
    heap.RemoveAt(0);
    heap.RemoveAt(98);
    heap.RemoveAt(49);
    ASSERT_EQ(heap.Count(), 97);
    EXPECT_EQ(heap[0], 1);
    EXPECT_EQ(heap[48], 49);
    EXPECT_EQ(heap[49], 51);
    EXPECT_EQ(heap[96], 98);
}

TEST(Heap, IgnoresPlacesThatAreNotThere) {
    zHeap<int> heap;
    heap.RemoveAt(0);
    heap.Add(1);
    heap.RemoveAt(1);
    heap.RemoveAt(-1);
    EXPECT_EQ(heap.Count(), 1);
    heap.MakeEmpty();
    EXPECT_EQ(heap.Count(), 0);
}

TEST(Heap, CopiesShareNothing) {
    zHeap<int> heap;
    heap.Add(1);
    zHeap<int> copy(heap);
    copy[0] = 2;
    copy.Add(3);
    EXPECT_EQ(heap[0], 1);
    EXPECT_EQ(heap.Count(), 1);
    heap = copy;
    EXPECT_EQ(heap.Count(), 2);
    EXPECT_EQ(heap.Elements()[1], 3);
    const zHeap<int> moved(std::move(copy));
    EXPECT_EQ(moved.Count(), 2);
}

}  // namespace
