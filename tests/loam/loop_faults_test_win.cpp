// loop_faults_test_win.cpp - a message queue that is full, and a WM_QUIT that is not ours.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <thread>

#include "loam/message_loop.h"
#include "loam/queue_calls.h"

namespace {

constexpr std::uint32_t k_long_us = 30'000'000;  // a bound for what comes at once
constexpr std::uint32_t k_short_us = 50'000;     // a bound that is meant to pass
constexpr int k_quit_code = 7;

std::atomic<int> s_posts_that_fail{0};
int s_waits = 0;

BOOL WINAPI post_to_full_queue(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (s_posts_that_fail-- <= 0) return PostMessageW(window, message, wparam, lparam);
    SetLastError(ERROR_NOT_ENOUGH_QUOTA);
    return FALSE;
}

DWORD WINAPI counted_wait(DWORD count, const HANDLE* handles, DWORD ms, DWORD mask, DWORD flags) {
    ++s_waits;
    return MsgWaitForMultipleObjectsEx(count, handles, ms, mask, flags);
}

class LoopFaultsTest : public testing::Test {
protected:
    LoopFaultsTest() {
        while (zMessageLoop::RunOnce(0)) {
        }
        loam::queue_calls_in_use() = {&post_to_full_queue, &counted_wait};
        s_waits = 0;
    }
    ~LoopFaultsTest() override { loam::queue_calls_in_use() = {}; }

    // Until `done`, and no longer than a bound; as a host's own pump does.
    static void pump_until(const bool& done) {
        const UINT_PTR bound = SetTimer(nullptr, 0, k_long_us / 1000, nullptr);
        MSG message;
        while (!done && GetMessageW(&message, nullptr, 0, 0) > 0) {
            if (message.message == WM_TIMER && message.hwnd == nullptr) break;
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        KillTimer(nullptr, bound);
    }

    std::shared_ptr<zMessageLoop> m_loop = zMessageLoop::Current();
    bool m_has_run = false;
};

TEST_F(LoopFaultsTest, AFullQueueLosesNoWorkOfTheLoopsOwnThread) {
    s_posts_that_fail = 1;
    EXPECT_EQ(m_loop->Post([this] { m_has_run = true; }), 0);
    while (!m_has_run && zMessageLoop::RunOnce(k_long_us)) {
    }
    EXPECT_TRUE(m_has_run);
}

TEST_F(LoopFaultsTest, AFullQueueLosesNoWorkOfAnotherThread) {
    s_posts_that_fail = 2;
    std::thread([this] { m_loop->Post([this] { m_has_run = true; }); }).join();
    while (!m_has_run && zMessageLoop::RunOnce(k_long_us)) {
    }
    EXPECT_TRUE(m_has_run);
}

TEST_F(LoopFaultsTest, AFullQueueLosesNoWorkUnderTheHostsPump) {
    s_posts_that_fail = 2;
    std::thread([this] { m_loop->Post([this] { m_has_run = true; }); }).join();
    pump_until(m_has_run);
    EXPECT_TRUE(m_has_run);
}

TEST_F(LoopFaultsTest, AFullQueueLosesNoQuit) {
    s_posts_that_fail = 2;
    const UINT_PTR bound = SetTimer(nullptr, 0, k_long_us / 1000, [](HWND, UINT, UINT_PTR, DWORD) {
        ADD_FAILURE() << "the quit was lost";
        zMessageLoop::Quit();
    });
    std::thread([this] { m_loop->RequestQuit(); }).join();
    zMessageLoop::Run();
    KillTimer(nullptr, bound);
}

TEST_F(LoopFaultsTest, AQuitOfAnotherRunIsLeftToItAndDoesNotKeepThisOneSpinning) {
    PostQuitMessage(k_quit_code);
    EXPECT_FALSE(zMessageLoop::RunOnce(k_short_us));
    EXPECT_LE(s_waits, 3);
    MSG message;
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, static_cast<UINT>(WM_QUIT));
    EXPECT_EQ(message.wParam, static_cast<WPARAM>(k_quit_code));
}

TEST_F(LoopFaultsTest, AQuitOfAnotherRunKeepsNoWorkBack) {
    PostQuitMessage(k_quit_code);
    m_loop->Post([this] { m_has_run = true; });
    EXPECT_TRUE(zMessageLoop::RunOnce(k_long_us));
    EXPECT_TRUE(m_has_run);
    MSG message;
    EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

}  // namespace
