// lines_test_linux.cpp - the connections that are kept between requests: which one a request gets,
// and how many there are. Linux only: WinHTTP keeps its own.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/limits.h"
#include "httpclient/curl_lines.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/support/eventually.h"

namespace pennywort::httpclient {
namespace {

using line = std::unique_ptr<curl_line>;

line new_line(const std::string& destination) {
    line made = curl_lines::borrow(destination);
    // Not one that was given back.
    EXPECT_FALSE(made->told.is_set_up);
    made->told.is_set_up = true;
    return made;
}

bool is_kept(const std::string& destination) {
    line found = curl_lines::borrow(destination);
    const bool was_kept = found->told.is_set_up;
    curl_lines::give_back(std::move(found));
    return was_kept;
}

TEST(Lines, AreForTheirDestinationAlone) {
    curl_lines::give_back(new_line("lines-a"));
    line other = new_line("lines-b");
    EXPECT_TRUE(is_kept("lines-a"));
    line taken = curl_lines::borrow("lines-a");
    EXPECT_TRUE(taken->told.is_set_up);
    // It has been taken: the next one is new.
    new_line("lines-a");
}

TEST(Lines, AreBoundedAndTheOldestGoes) {
    const std::size_t count = k_max_idle_connections + 8;
    std::vector<line> all;
    for (std::size_t i = 0; i < count; ++i) all.push_back(new_line("many-" + std::to_string(i)));
    for (line& each : all) curl_lines::give_back(std::move(each));
    // Looked at from the newest on: each look for one that is gone puts a new one in a place.
    for (std::size_t i = count; i > 8; --i) {
        EXPECT_TRUE(is_kept("many-" + std::to_string(i - 1))) << i - 1;
    }
    EXPECT_FALSE(is_kept("many-0"));
}

// The last of these tests by its time: the next look at old ones is a minute away from here.
TEST(Lines, AreClosedWhenTheyHaveBeenIdleForAMinute) {
    const auto now = std::chrono::steady_clock::now();
    const auto after = [&](int seconds) { return now + std::chrono::seconds(seconds); };
    curl_lines::give_back(new_line("old-first"), now);
    curl_lines::give_back(new_line("old-second"), after(10));
    curl_lines::give_back(new_line("old-third"), after(61));
    EXPECT_FALSE(is_kept("old-first"));
    EXPECT_TRUE(is_kept("old-second"));
    EXPECT_TRUE(is_kept("old-third"));
}

TEST(Lines, BelongToOneThreadAtATime) {
    std::atomic<int> shared{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 300; ++round) {
                line mine = curl_lines::borrow("threads-" + std::to_string(round % 3));
                // The line says who has it; nobody else may write there.
                if (mine->told.user != nullptr) ++shared;
                mine->told.user = &shared;
                std::this_thread::yield();
                mine->told.user = nullptr;
                curl_lines::give_back(std::move(mine));
            }
        });
    }
    for (std::thread& each : threads) each.join();
    EXPECT_EQ(shared, 0);
}

using LinesInUse = SessionTest;

// Each request but the first finds the connection that was kept closed, when it has been sent.
TEST_F(LinesInUse, AConnectionIsMadeAnewHoweverOftenTheKeptOneWasClosed) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send(answer_with("x"));
        connection.receive_head();
    });
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(get(peer.url()), 0) << i;
        ASSERT_EQ(body(), "x");
    }
    EXPECT_EQ(peer.connections(), 20);
}

// Each of them looks the name up, for which libcurl starts a thread.
TEST_F(LinesInUse, AThousandSessionsThatConnectLeaveNoThread) {
    const auto threads = [] {
        const std::filesystem::directory_iterator entries("/proc/self/task");
        return std::distance(begin(entries), end(entries));
    };
    const scripted_peer peer(answering(answer_with("x", "Connection: close\r\n")));
    const std::string url = "http://localhost:" + std::to_string(peer.port()) + "/";
    ASSERT_EQ(get(url), 0);
    const auto before = threads();
    for (int i = 0; i < 1000; ++i) {
        m_session = cHttpSession::Factory();
        ASSERT_EQ(get(url), 0);
        ASSERT_EQ(body(), "x");
    }
    m_session.reset();
    EXPECT_TRUE(tests::eventually([&] { return threads() <= before; })) << threads();
}

}  // namespace
}  // namespace pennywort::httpclient
