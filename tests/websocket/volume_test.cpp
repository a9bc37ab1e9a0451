// volume_test.cpp - many sockets at once, and many one after another, with nothing left of them.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/httpserver/descriptors.h"
#include "tests/support/effort.h"
#include "tests/support/eventually.h"
#include "tests/websocket/event_log.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace {

using pennywort::tests::effort;
using pennywort::tests::eventually;

void greet_and_answer(peer_connection& connection) {
    connection.accept();
    connection.send(frames::text("hello"));
    if (connection.receive_frame().opcode == frames::k_close) {
        connection.send(frames::close(1000));
    }
}

std::size_t running_threads() {
    const std::filesystem::directory_iterator entries("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// Of all threads. A sanitizer's own memory has no such count, and finds what is lost itself.
std::size_t bytes_in_use() { return ::mallinfo2().uordblks; }

// The least that can be lost takes 32 bytes of the heap: 288,000 for the sockets of the tests
// below. What each thread keeps at hand of what it has freed counts as in use, and is some KiB
// either way.
constexpr std::size_t k_most_bytes_left = 64 << 10;

TEST(Volume, AThousandSocketsTalkAtOnce) {
    constexpr int k_at_once = 1000;
    ASSERT_TRUE(make_room_for_descriptors(3 * k_at_once));
    const std::size_t before = open_descriptors();
    {
        const scripted_peer peer(greet_and_answer);
        std::atomic<int> greeted{0};
        std::atomic<int> closed{0};
        std::vector<std::shared_ptr<cWebSocket>> sockets;
        for (int i = 0; i < k_at_once; ++i) {
            sockets.push_back(cWebSocket::Factory());
            sockets.back()->SetMessageHandler([&](const char*) { ++greeted; });
            sockets.back()->SetClosedHandler(
                [&](std::optional<cWebSocket::Error>, bool was_clean) { closed += was_clean; });
            sockets.back()->Open(peer.url().c_str(), 0);
        }
        EXPECT_TRUE(eventually([&] { return greeted == k_at_once; })) << greeted;
        for (const auto& socket : sockets) socket->Close();
        EXPECT_TRUE(eventually([&] { return closed == k_at_once; })) << closed;
    }
    EXPECT_TRUE(eventually([&] { return open_descriptors() <= before; })) << open_descriptors();
}

constexpr int k_volume_rounds = 20;
constexpr int k_sockets = effort(500, 50);

// What the process has.
struct left_over {
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t bytes = 0;

    static left_over now() { return {open_descriptors(), running_threads(), bytes_in_use()}; }
    bool is_no_more_than(const left_over& other) const {
        return descriptors <= other.descriptors && threads <= other.threads &&
               bytes <= other.bytes + k_most_bytes_left;
    }
};
std::ostream& operator<<(std::ostream& out, const left_over& what) {
    return out << what.descriptors << " descriptors, " << what.threads << " threads, " << what.bytes
               << " bytes";
}

// Two rounds that have been warm leave the next ones nothing to keep.
template <class Use>
void expect_nothing_left_of(Use use_one) {
    left_over before;
    for (int round = 0; round < k_volume_rounds; ++round) {
        if (round == 2) before = left_over::now();
        const scripted_peer peer(greet_and_answer);
        for (int i = 0; i < k_sockets; ++i) ASSERT_NO_FATAL_FAILURE(use_one(peer.url()));
    }
    EXPECT_TRUE(eventually([&] { return left_over::now().is_no_more_than(before); }))
        << left_over::now() << " of " << before;
}

TEST(Volume, TenThousandOneAfterAnotherLeaveNothing) {
    expect_nothing_left_of([](const std::string& url) {
        event_log events;
        const auto socket = cWebSocket::Factory();
        events.listen_to(*socket);
        socket->Open(url.c_str(), 0);
        ASSERT_TRUE(events.wait_for(2));
        socket->Close();
        ASSERT_TRUE(events.wait_for(3));
        ASSERT_EQ(events.text(), "opened | message hello | closed clean");
    });
}

TEST(Volume, TenThousandSystemSocketsOneAfterAnotherLeaveNothing) {
    expect_nothing_left_of([](const std::string& url) {
        event_log events;
        system_socket socket;
        events.listen_to(socket);
        socket.Open(url.c_str(), 0);
        ASSERT_TRUE(events.wait_for(2));
        socket.Close();
    });
}

bool has_websocket_thread() {
    const std::filesystem::directory_iterator entries("/proc/self/task");
    return std::any_of(begin(entries), end(entries), [](const auto& thread) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
        return name == "websocket";
    });
}

// What the thread uses is freed at the process's end.
TEST(VolumeDeathTest, TheThreadEndsBeforeTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exit_while_open = [] {
        // The system needs a moment to take a thread away that has ended.
        std::atexit(
            [] { std::_Exit(eventually([] { return !has_websocket_thread(); }) ? 42 : 1); });
        const scripted_peer peer(greet_and_answer);
        event_log events;
        const auto socket = cWebSocket::Factory();
        events.listen_to(*socket);
        socket->Open(peer.url().c_str(), 0);
        if (!events.wait_for(2) || !has_websocket_thread()) std::_Exit(2);
        std::exit(0);
    };
    EXPECT_EXIT(exit_while_open(), testing::ExitedWithCode(42), "");
}

}  // namespace
