// timer_window_test_win.cpp - the window behind the timer of the display thread: what other
// programs and debuggers see of it, and what may be in its way.
#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <memory>
#include <string>

#include "loam/message_loop.h"
#include "loam/thread.h"
#include "tests/support/collected_traces.h"
#include "webdisplay/main_thread_timer.h"
#include "webdisplay/timer_calls_win.h"

namespace pennywort::webdisplay {
namespace {

constexpr wchar_t k_name[] = L"cWebMainThreadTimerLoop";
constexpr UINT_PTR k_id = 0x6377544C;

// Of this process: other tests run at the same time, on the same screen.
HWND timer_window() {
    HWND window = nullptr;
    DWORD process = 0;
    do {
        window = FindWindowExW(HWND_MESSAGE, window, k_name, nullptr);
        GetWindowThreadProcessId(window, &process);
    } while (window && process != GetCurrentProcessId());
    return window;
}

// Runs the loop until `done` answers true. The bound is there for a fault, not for the time.
bool loop_until(const std::function<bool()>& done) {
    for (int i = 0; i < 3000 && !done(); ++i) zMessageLoop::RunOnce(10'000);
    return done();
}

LRESULT CALLBACK deaf(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    return message == WM_TIMER ? 0 : DefWindowProcW(window, message, wparam, lparam);
}

TEST(TimerWindow, AClassOfThatNameThatSomebodyElseRegisteredIsNotInTheWay) {
    WNDCLASSEXW type{};
    type.cbSize = sizeof type;
    type.lpfnWndProc = deaf;
    type.hInstance = GetModuleHandleW(nullptr);
    type.lpszClassName = k_name;
    ASSERT_NE(RegisterClassExW(&type), 0);

    int ticks = 0;
    const auto timer = main_thread_timer::make([&] { ++ticks; });
    timer->start_periodic(15);
    EXPECT_TRUE(loop_until([&] { return ticks >= 3; }));
    timer->stop();
    UnregisterClassW(k_name, GetModuleHandleW(nullptr));
}

TEST(TimerWindow, StartsAndStopsTwiceOverAlthoughItsClassIsRegistered) {
    for (int round = 0; round < 2; ++round) {
        int ticks = 0;
        const auto timer = main_thread_timer::make([&] { ++ticks; });
        timer->start_periodic(15);
        EXPECT_TRUE(loop_until([&] { return ticks >= 2; }));
        timer->stop();
        EXPECT_EQ(timer_window(), nullptr);
    }
}

// Each in a library of its own, say: both have a window of the one class.
std::shared_ptr<main_thread_timer> g_timers[2];
int g_ticks[2] = {};
template <int Module>
void start_module() {
    g_timers[Module] = main_thread_timer::make([] { ++g_ticks[Module]; });
    g_timers[Module]->start_periodic(15);
}
template <int Module>
void stop_module() {
    g_timers[Module].reset();
}

TEST(TimerWindow, TwoModulesThatHaveOneEachStartAndStopTwiceOver) {
    for (int round = 0; round < 2; ++round) {
        g_ticks[0] = g_ticks[1] = 0;
        start_module<0>();
        start_module<1>();
        EXPECT_TRUE(loop_until([] { return g_ticks[0] > 1 && g_ticks[1] > 1; }));
        stop_module<1>();
        stop_module<0>();
        EXPECT_EQ(timer_window(), nullptr);
        const int before = g_ticks[0] + g_ticks[1];
        for (int i = 0; i < 10; ++i) zMessageLoop::RunOnce(5'000);
        EXPECT_EQ(g_ticks[0] + g_ticks[1], before);
    }
}

TEST(TimerWindow, HasTheNameStyleAndTimerThatHostsKnow) {
    const auto timer = main_thread_timer::make([] {});
    EXPECT_EQ(timer_window(), nullptr);
    timer->start_periodic(15);
    const HWND window = timer_window();
    ASSERT_NE(window, nullptr);
    wchar_t title[64] = {};
    GetWindowTextW(window, title, 64);
    EXPECT_STREQ(title, k_name);
    EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & WS_DISABLED, 0x08000000);
    // The system gives this one to every window with a frame.
    EXPECT_EQ(GetWindowLongPtrW(window, GWL_EXSTYLE) & ~LONG_PTR{WS_EX_WINDOWEDGE}, 0);
    EXPECT_EQ(GetWindowLongPtrW(window, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(timer.get()));
    EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
    // It is there exactly if it can be taken away.
    EXPECT_TRUE(KillTimer(window, k_id));
    timer->stop();
}

TEST(TimerWindow, AnotherTimerOfItsWindowIsNoTick) {
    int ticks = 0;
    const auto timer = main_thread_timer::make([&] { ++ticks; });
    timer->start_periodic(15);
    const HWND window = timer_window();
    ASSERT_TRUE(KillTimer(window, k_id));
    SendMessageW(window, WM_TIMER, 1, 0);
    SendMessageW(window, WM_NULL, k_id, 0);
    EXPECT_EQ(ticks, 0);
    SendMessageW(window, WM_TIMER, k_id, 0);
    EXPECT_EQ(ticks, 1);
}

TEST(TimerWindow, ATickThatRunsALoopIsEnteredAgain) {
    int depth = 0;
    int deepest = 0;
    const auto timer = main_thread_timer::make([&] {
        ++depth;
        deepest = std::max(deepest, depth);
        if (depth == 1) loop_until([&] { return deepest > 1; });
        --depth;
    });
    timer->start_periodic(15);
    EXPECT_TRUE(loop_until([&] { return deepest == 2; }));
    timer->stop();
}

TEST(TimerWindow, ATickMayEndItsTimer) {
    std::shared_ptr<main_thread_timer> timer;
    int ticks = 0;
    timer = main_thread_timer::make([&] {
        ++ticks;
        timer.reset();
    });
    timer->start_periodic(15);
    EXPECT_TRUE(loop_until([&] { return ticks == 1; }));
    EXPECT_EQ(timer_window(), nullptr);
}

TEST(TimerWindow, ARequestBeforeTheStartIsKept) {
    int ticks = 0;
    const auto timer = main_thread_timer::make([&] { ++ticks; });
    timer->request(5);
    timer->start_on_request(60'000);
    EXPECT_TRUE(loop_until([&] { return ticks == 1; }));
    timer->stop();
    timer->request(0);
}

class asking final : public zThreadMain {
public:
    asking(main_thread_timer& timer, std::int64_t delay_ms)
        : m_timer(timer), m_delay_ms(delay_ms) {}
    zStatus Main(std::int32_t, const char* const*) override {
        m_timer.request(m_delay_ms);
        return 0;
    }

private:
    main_thread_timer& m_timer;
    const std::int64_t m_delay_ms;
};

TEST(TimerWindow, RequestsOfOtherThreadsArrive) {
    for (const std::int64_t delay_ms : {0, 1, 20}) {
        int ticks = 0;
        const auto timer = main_thread_timer::make([&] { ++ticks; });
        timer->start_on_request(60'000);
        asking body(*timer, delay_ms);
        const std::unique_ptr<zThread> thread(zThread::Factory("asking", &body, 0, 0));
        EXPECT_TRUE(loop_until([&] { return ticks == 1; })) << delay_ms;
        timer->stop();
    }
}

// The first posts fail, as they do where the thread's queue is full.
int g_posts = 0;
BOOL WINAPI post_to_full_queue(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    return ++g_posts > 3 ? PostMessageW(window, message, wparam, lparam) : FALSE;
}

TEST(TimerWindow, AWakeUpThatAFullQueueRefusesIsNotLost) {
    timer_calls::post_message = post_to_full_queue;
    int ticks = 0;
    const auto timer = main_thread_timer::make([&] { ++ticks; });
    timer->start_on_request(60'000);
    timer->request(0);
    EXPECT_TRUE(loop_until([&] { return ticks == 1; }));
    EXPECT_EQ(g_posts, 4);
    timer->stop();
    timer_calls::post_message = &PostMessageW;
}

// A system that has no such timers left, as they come out of one quota with other handles.
class WithoutWaitableTimers : public testing::Test {
protected:
    void SetUp() override {
        timer_calls::create_waitable_timer = [](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD,
                                                DWORD) -> HANDLE {
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return nullptr;
        };
        m_timer = main_thread_timer::make([this] { ++m_ticks; });
        ASSERT_NE(m_timer, nullptr);
        EXPECT_NE(m_traces.text().find("CreateWaitableTimerExW - failed (err=1450)"),
                  std::string::npos);
    }
    void TearDown() override {
        m_timer.reset();
        timer_calls::create_waitable_timer = &CreateWaitableTimerExW;
    }
    bool ticks_come(int wanted) {
        return loop_until([&] { return m_ticks >= wanted; });
    }

    const tests::collected_traces m_traces;
    int m_ticks = 0;
    std::shared_ptr<main_thread_timer> m_timer;
};

TEST_F(WithoutWaitableTimers, APeriodTicks) {
    m_timer->start_periodic(15);
    EXPECT_TRUE(ticks_come(3));
}

TEST_F(WithoutWaitableTimers, ARequestIsServedAndLetsTheLoopRest) {
    m_timer->start_on_request(3'600'000);
    for (const std::int64_t delay_ms : {0, 1, 20}) {
        m_ticks = 0;
        m_timer->request(delay_ms);
        EXPECT_TRUE(ticks_come(1)) << delay_ms;
        for (int i = 0; i < 5; ++i) zMessageLoop::RunOnce(10'000);
        // The window's timer may be early, and is set once more then.
        EXPECT_LE(m_ticks, 2) << delay_ms;
    }
}

TEST_F(WithoutWaitableTimers, ARequestBeforeTheStartIsKept) {
    m_timer->request(5);
    m_timer->start_on_request(3'600'000);
    EXPECT_TRUE(ticks_come(1));
}

TEST_F(WithoutWaitableTimers, ARequestOfAnotherThreadArrives) {
    m_timer->start_on_request(3'600'000);
    asking body(*m_timer, 20);
    const std::unique_ptr<zThread> thread(zThread::Factory("asking", &body, 0, 0));
    EXPECT_TRUE(ticks_come(1));
}

TEST(TimerWindow, TicksUnaskedWhenNobodyAsksForLong) {
    int ticks = 0;
    const auto timer = main_thread_timer::make([&] { ++ticks; });
    timer->start_on_request(10);
    EXPECT_TRUE(loop_until([&] { return ticks >= 3; }));
    timer->stop();
}

}  // namespace
}  // namespace pennywort::webdisplay
