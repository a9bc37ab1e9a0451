// main_thread_timer_win.cpp - Windows half of main_thread_timer.h. Linux half:
// main_thread_timer_linux.cpp.
//
// A message-only window, so that any message pump of the thread delivers the ticks, those included
// that the system runs while the user drags a window or a dialogue is open.
#include "webdisplay/main_thread_timer.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <utility>

#include "core/run/clock.h"
#include "webdisplay/cef/system_failure_win.h"
#include "webdisplay/timer_calls_win.h"

namespace pennywort::webdisplay {

decltype(&PostMessageW) timer_calls::post_message = &PostMessageW;
decltype(&CreateWaitableTimerExW) timer_calls::create_waitable_timer = &CreateWaitableTimerExW;

namespace {

constexpr wchar_t k_window_name[] = L"cWebMainThreadTimerLoop";
constexpr UINT_PTR k_timer = 0x6377544C;
constexpr UINT_PTR k_idle_timer = k_timer + 1;
constexpr UINT_PTR k_alarm_timer = k_timer + 2;
constexpr UINT k_due_message = WM_APP;
constexpr UINT k_alarm_message = WM_APP + 1;
static_assert(WS_DISABLED == 0x08000000);

// CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, which older headers lack.
constexpr DWORD k_high_resolution = 0x00000002;

constexpr std::int64_t k_nobody_asked = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t k_longest_delay_ns = 60'000'000'000;
// When to post again what a full queue did not take.
constexpr std::int64_t k_full_queue_pause_ms = 5;
constexpr std::int64_t k_ns_per_us = 1000;
constexpr std::int64_t k_ns_per_ms = 1'000'000;

std::int64_t now_ns() {
    return std::chrono::nanoseconds(run::monotonic_clock::system().now().time_since_epoch())
        .count();
}

using cef::check;
using cef::trace_failure;

// What stood there before may have been 0, which a failure returns too.
void set_window_value(HWND window, int index, LONG_PTR value) {
    SetLastError(ERROR_SUCCESS);
    const bool is_zero = SetWindowLongPtrW(window, index, value) == 0;
    const DWORD error = GetLastError();
    if (is_zero && error != ERROR_SUCCESS) trace_failure("SetWindowLongPtrW", error);
}

HMODULE own_module() {
    HMODULE module = nullptr;
    check(GetModuleHandleExW(
              GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
              reinterpret_cast<LPCWSTR>(&own_module), &module),
          "GetModuleHandleExW");
    return module;
}

// Counts in fractions of a millisecond where the system has such a timer (from Windows 10 1803);
// else in clock ticks.
HANDLE make_alarm() {
    const auto create = timer_calls::create_waitable_timer;
    const HANDLE fine = create(nullptr, nullptr, k_high_resolution, TIMER_ALL_ACCESS);
    if (fine != nullptr) return fine;
    const HANDLE coarse = create(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
    check(coarse != nullptr, "CreateWaitableTimerExW");
    return coarse;
}

class windows_timer final : public main_thread_timer,
                            public std::enable_shared_from_this<windows_timer> {
public:
    explicit windows_timer(std::function<void()> tick) : m_tick(std::move(tick)) {}

    ~windows_timer() override {
        windows_timer::stop();
        // Waits for a call in progress, which looks at this object.
        if (m_wait != nullptr) {
            check(UnregisterWaitEx(m_wait, INVALID_HANDLE_VALUE), "UnregisterWaitEx");
        }
        if (m_alarm != nullptr) check(CloseHandle(m_alarm), "CloseHandle");
    }

    // An alarm that other threads set, and that wakes this one. Without it the window has one.
    void find_alarm() {
        m_alarm = make_alarm();
        if (m_alarm == nullptr || RegisterWaitForSingleObject(&m_wait, m_alarm, on_alarm, this,
                                                              INFINITE, WT_EXECUTEINWAITTHREAD)) {
            return;
        }
        trace_failure("RegisterWaitForSingleObject", GetLastError());
        m_wait = nullptr;
        check(CloseHandle(std::exchange(m_alarm, nullptr)), "CloseHandle");
    }

    void start_periodic(int period_ms) override {
        m_is_periodic = true;
        if (make_window()) set_window_timer(m_window, k_timer, static_cast<UINT>(period_ms));
    }

    void start_on_request(int idle_ms) override {
        m_idle_ms = static_cast<UINT>(idle_ms);
        if (!make_window()) return;
        set_window_timer(m_window, k_idle_timer, m_idle_ms);
        arm();
    }

    void stop() override {
        const HWND window = m_window.exchange(nullptr);
        if (window == nullptr) return;
        check(KillTimer(window, m_is_periodic ? k_timer : k_idle_timer), "KillTimer");
        set_window_value(window, GWLP_USERDATA, 0);
        check(DestroyWindow(window), "DestroyWindow");
    }

    void request_in(std::chrono::nanoseconds delay) override {
        if (m_is_periodic.load(std::memory_order_relaxed)) return;
        const std::int64_t delay_ns =
            std::clamp<std::int64_t>(delay.count(), 0, k_longest_delay_ns);
        const std::int64_t now = now_ns();
        const std::int64_t due = std::max(now + delay_ns, m_rest_until_ns.load());
        std::int64_t asked = m_due_ns.load();
        do {
            if (asked <= due) return;
        } while (!m_due_ns.compare_exchange_weak(asked, due));
        if (due == now) {
            post_due();
        } else {
            arm();
        }
    }

    void rest(std::int64_t us) override { m_rest_until_ns = now_ns() + us * k_ns_per_us; }

private:
    // Two threads may ask at once, and the one with the later time may set the alarm last: set it
    // again until it stands at what was asked for.
    void arm() {
        std::int64_t due = m_due_ns.load();
        while (due != k_nobody_asked) {
            set_alarm(due - now_ns());
            const std::int64_t asked = m_due_ns.load();
            if (asked == due) return;
            due = asked;
        }
    }

    void set_alarm(std::int64_t from_now_ns) {
        if (m_alarm == nullptr) return set_window_alarm(from_now_ns);
        LARGE_INTEGER wait{};
        // Negative: from now on, in units of 100 ns. 0 would be a moment of the calendar.
        wait.QuadPart = std::min<std::int64_t>(-from_now_ns / 100, -1);
        check(SetWaitableTimer(m_alarm, &wait, 0, nullptr, nullptr, FALSE), "SetWaitableTimer");
    }

    // Of the window's thread, which alone may set a timer of the window's. Should its queue be
    // full, the idle timer is the next to tick.
    void set_window_alarm(std::int64_t from_now_ns) {
        const HWND window = m_window.load();
        const std::int64_t ms = std::max<std::int64_t>(from_now_ns / k_ns_per_ms + 1, 0);
        if (window == nullptr) return;
        timer_calls::post_message(window, k_alarm_message, static_cast<WPARAM>(ms), 0);
    }

    static void set_window_timer(HWND window, UINT_PTR id, UINT ms) {
        check(SetTimer(window, id, ms, nullptr) != 0, "SetTimer");
    }

    // On a thread of the system's.
    static void CALLBACK on_alarm(void* self, BOOLEAN) {
        static_cast<windows_timer*>(self)->post_due();
    }

    void post_due() {
        const HWND window = m_window.load();
        if (window == nullptr || timer_calls::post_message(window, k_due_message, 0, 0)) return;
        // The thread's queue is full. What was asked for stands as asked, so nobody would ask
        // again: without another try the wake-up would be lost for ever.
        set_alarm(k_full_queue_pause_ms * k_ns_per_ms);
    }

    // Registered already after an earlier start; then this fails, and nothing is lost.
    static void register_window_class(const WNDCLASSEXW& type) {
        if (RegisterClassExW(&type) != 0) return;
        const DWORD error = GetLastError();
        if (error != ERROR_CLASS_ALREADY_EXISTS) trace_failure("RegisterClassExW", error);
    }

    bool make_window() {
        stop();
        WNDCLASSEXW type{};
        type.cbSize = sizeof type;
        type.lpfnWndProc = procedure;
        type.hInstance = own_module();
        type.lpszClassName = k_window_name;
        register_window_class(type);
        const HWND window = CreateWindowExW(0, k_window_name, k_window_name, WS_DISABLED, 0, 0, 1,
                                            1, HWND_MESSAGE, nullptr, own_module(), this);
        check(window != nullptr, "CreateWindowExW");
        if (window == nullptr) return false;
        // Somebody else may have registered a class of this name in our module, or this library may
        // have been loaded to another place since: the window is ours all the same.
        set_window_value(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&procedure));
        set_window_value(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        m_window = window;
        return true;
    }

    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
        auto* const timer =
            reinterpret_cast<windows_timer*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (timer != nullptr && message == k_alarm_message) {
            set_window_timer(window, k_alarm_timer, static_cast<UINT>(wparam));
        } else if (timer != nullptr) {
            timer->take(message, wparam);
        }
        return DefWindowProcW(window, message, wparam, lparam);
    }

    void take(UINT message, WPARAM wparam) {
        const bool is_period = message == WM_TIMER && wparam == k_timer;
        const bool is_idle = message == WM_TIMER && wparam == k_idle_timer;
        const bool is_alarm = message == WM_TIMER && wparam == k_alarm_timer;
        if (!is_period && !is_idle && !is_alarm && message != k_due_message) return;
        // It would go off again and again.
        if (is_alarm) check(KillTimer(m_window, k_alarm_timer), "KillTimer");
        // The tick may end the pump that owns the timer.
        const auto kept = shared_from_this();
        is_period ? m_tick() : on_due();
    }

    // A tick that came for another reason leaves a request for later as it is.
    void forget_if_due() {
        std::int64_t asked = m_due_ns.load();
        if (asked <= now_ns()) m_due_ns.compare_exchange_strong(asked, k_nobody_asked);
    }

    void on_due() {
        // Before the work starts: a request made during it arms the alarm anew.
        forget_if_due();
        m_tick();
        // The alarm counts in steps of its own and may have gone off too early.
        arm();
        // The tick may have stopped this timer. The idle time counts from now on.
        const HWND window = m_window.load();
        if (window != nullptr) set_window_timer(window, k_idle_timer, m_idle_ms);
    }

    const std::function<void()> m_tick;
    std::atomic<HWND> m_window{nullptr};
    HANDLE m_alarm = nullptr;
    HANDLE m_wait = nullptr;
    UINT m_idle_ms = 0;
    std::atomic<bool> m_is_periodic{false};
    std::atomic<std::int64_t> m_rest_until_ns{0};
    std::atomic<std::int64_t> m_due_ns{k_nobody_asked};
};

}  // namespace

std::shared_ptr<main_thread_timer> main_thread_timer::make(std::function<void()> tick) {
    auto timer = std::make_shared<windows_timer>(std::move(tick));
    timer->find_alarm();
    return timer;
}

}  // namespace pennywort::webdisplay
