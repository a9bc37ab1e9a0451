// loam/loop_state_win.cpp - Windows half of loam/loop_state.h, over the thread's message queue.
// Linux half: loop_state_linux.cpp.
//
// A message-only window per thread carries all posted work, so that any message pump of the thread
// delivers it: the host's own, ours, and those that the system runs inside a dialogue.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "loam/ended_loop.h"
#include "loam/loop_state.h"
#include "loam/message_loop.h"
#include "loam/posted_work.h"
#include "loam/queue_calls.h"
#include "loam/trace.h"

namespace loam {
namespace {

using clock = std::chrono::steady_clock;

constexpr UINT k_work_message = WM_APP;
constexpr UINT k_wake_message = WM_APP + 1;  // sent, where the other cannot be posted
constexpr UINT_PTR k_wake_timer = 1;
constexpr wchar_t k_window_class[] = L"loamPostedWork";
// One turn of a loop ends after so many messages, so that a flood of them cannot hold it.
constexpr int k_most_messages = 64;

HMODULE own_module() {
    HMODULE module = nullptr;
    // Pinned: the window procedure and the end of each thread are code of this module.
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&own_module), &module);
    return module;
}

LRESULT CALLBACK work_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

struct made_window {
    HWND window;
    DWORD error;
};

made_window make_window() {
    [[maybe_unused]] static const ATOM s_registered = [] {
        WNDCLASSEXW type{};
        type.cbSize = sizeof type;
        type.lpfnWndProc = work_procedure;
        type.hInstance = own_module();
        type.lpszClassName = k_window_class;
        return RegisterClassExW(&type);
    }();
    // Without the class there is no window either.
    const HWND window = CreateWindowExW(0, k_window_class, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE,
                                        nullptr, own_module(), nullptr);
    return {window, window == nullptr ? GetLastError() : 0};
}

// A WM_QUIT that is meant for a run further up the stack. No wait lasts while one is in the queue,
// so a wait takes it out, and gives it back when it ends or calls somebody who may look for it.
class held_quit {
public:
    held_quit() = default;
    held_quit(const held_quit&) = delete;
    held_quit& operator=(const held_quit&) = delete;
    ~held_quit() { give_back(); }

    void hold(const MSG& quit) { m_code = static_cast<int>(quit.wParam); }
    void give_back() {
        if (m_code) PostQuitMessage(*m_code);
        m_code.reset();
    }

private:
    std::optional<int> m_code;
};

class queue_loop final : public loop_state {
public:
    queue_loop() : m_work([this] { ask_for_turn(); }, [this] { m_is_waiting.store(false); }) {
        const made_window made = make_window();
        if (made.window == nullptr) {
            trace_failure("CreateWindowExW", made.error);
            return;
        }
        m_window = made.window;
        // The value before is 0 and tells nothing of a failure, unless the error says so.
        SetLastError(0);
        SetWindowLongPtrW(made.window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        const DWORD error = GetLastError();
        if (error != 0) trace_failure("SetWindowLongPtrW", error);
    }

    ~queue_loop() override { end(); }

    static std::shared_ptr<zMessageLoop> make_handle(const std::shared_ptr<queue_loop>& loop) {
        return handle_of(loop);
    }

    void run() override {
        ++m_runs;
        while (!m_is_quit_asked.exchange(false)) {
            MSG message;
            if (GetMessageW(&message, nullptr, 0, 0) <= 0) {
                // WM_QUIT ends every run of a thread, as it ends every other loop of Windows.
                if (m_runs > 1) PostQuitMessage(static_cast<int>(message.wParam));
                break;
            }
            dispatch(message);
        }
        --m_runs;
    }

    bool run_once(std::uint32_t microseconds) override {
        const auto end = clock::now() + std::chrono::microseconds(microseconds);
        held_quit quit;
        bool has_done = dispatch_ready(quit);
        // A wait may end with nothing to dispatch: another thread may have sent a message.
        while (!has_done && clock::now() < end && wait_for_messages(end - clock::now())) {
            has_done = dispatch_ready(quit);
        }
        return has_done;
    }

    zStatus post(std::function<void()> work) override {
        // Without a window nothing would ever be called.
        return m_window.load() != nullptr && m_work.post(std::move(work)) ? 0 : -1;
    }

    void request_quit() override {
        m_is_quit_asked.store(true);
        wake();
    }

    // On the loop's thread, when it ends.
    void end() {
        m_work.close();
        const HWND window = m_window.exchange(nullptr);
        if (window == nullptr) return;
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
        DestroyWindow(window);
    }

    // The work message has come. Whether there was any work.
    bool take_turn() {
        if (!m_is_waiting.load()) return false;
        // Asked for before the work is done: work may run a loop of its own, or leave something
        // behind that came after this turn began.
        wake();
        return m_work.run_some();
    }

    // From any thread. A full queue takes no message, and a wake-up that is lost would be missed
    // for ever: the next is asked for when nothing waits any more. What is sent and not posted
    // passes that limit, and so does a timer, which only the loop's own thread can set. Nothing is
    // traced here: a sink may post, and the queue of work is locked.
    void wake() {
        const HWND window = m_window.load();
        if (window == nullptr) return;
        if (queue_calls_in_use().post(window, k_work_message, 0, 0)) return;
        const bool is_own_thread = m_thread == GetCurrentThreadId();
        const bool is_asked_for =
            is_own_thread ? SetTimer(window, k_wake_timer, USER_TIMER_MINIMUM, nullptr) != 0
                          : SendNotifyMessageW(window, k_wake_message, 0, 0) != 0;
        if (!is_asked_for) m_is_wake_lost.store(true);
    }

private:
    void ask_for_turn() {
        m_is_waiting.store(true);
        wake();
    }

    static void trace_failure(const char* call, DWORD error) {
        zTraceManager::Default()->TraceNote("zMessageLoop: %s failed (err=%lu)\n", call, error);
    }

    bool is_work(const MSG& message) const {
        return message.message == k_work_message && message.hwnd == m_window.load();
    }

    // Whether something was done: a work message may come late, when the work has been done.
    bool dispatch(const MSG& message) {
        if (m_is_wake_lost.exchange(false)) wake();
        if (is_work(message)) return take_turn();
        TranslateMessage(&message);
        DispatchMessageW(&message);
        return true;
    }

    bool dispatch_ready(held_quit& quit) {
        bool has_done = false;
        MSG message;
        for (int i = 0; i < k_most_messages; ++i) {
            if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) break;
            if (message.message == WM_QUIT) {
                quit.hold(message);
                continue;
            }
            quit.give_back();
            const bool was_work = is_work(message);
            has_done = dispatch(message) || has_done;
            // Work that posts work must not keep its caller here.
            if (was_work && has_done) break;
        }
        return has_done;
    }

    // False when the system cannot wait.
    static bool wait_for_messages(clock::duration time) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(time).count();
        const DWORD ended =
            queue_calls_in_use().wait(0, nullptr, static_cast<DWORD>(std::max<long long>(ms, 0)),
                                      QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        if (ended != WAIT_FAILED) return true;
        const DWORD error = GetLastError();
        trace_failure("MsgWaitForMultipleObjectsEx", error);
        return false;
    }

    const DWORD m_thread = GetCurrentThreadId();
    std::atomic<HWND> m_window{nullptr};
    std::atomic<bool> m_is_waiting{false};
    std::atomic<bool> m_is_wake_lost{false};
    std::atomic<bool> m_is_quit_asked{false};
    posted_work m_work;
    int m_runs = 0;
};

LRESULT CALLBACK work_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    auto* const loop = reinterpret_cast<queue_loop*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    const bool is_timer = message == WM_TIMER && wparam == k_wake_timer;
    const bool is_ours = is_timer || message == k_work_message || message == k_wake_message;
    if (loop == nullptr || !is_ours) return DefWindowProcW(window, message, wparam, lparam);
    if (is_timer) KillTimer(window, k_wake_timer);
    // A message that is sent comes in the middle of whatever the thread does: no work may run here.
    message == k_wake_message ? loop->wake() : static_cast<void>(loop->take_turn());
    return 0;
}

struct thread_entry {
    std::shared_ptr<queue_loop> loop;
    std::shared_ptr<zMessageLoop> handle;
};

// A slot of the system's and not a thread_local with a destructor: the compiler's run time gives
// the storage of those back before it destroys what is in them.
class thread_slot {
public:
    // Never destroyed: it is asked until the last thread has ended.
    static const thread_slot& the() {
        static const auto* the_slot = new thread_slot;
        return *the_slot;
    }

    thread_entry* get() const { return static_cast<thread_entry*>(FlsGetValue(m_entry)); }
    bool set(thread_entry* entry) const { return FlsSetValue(m_entry, entry) != 0; }
    bool has_thread_ended() const { return TlsGetValue(m_ended) != nullptr; }

private:
    static void NTAPI end_of_thread(void* value) {
        const std::unique_ptr<thread_entry> entry(static_cast<thread_entry*>(value));
        TlsSetValue(the().m_ended, entry.get());
        entry->loop->end();
    }

    const DWORD m_entry = FlsAlloc(end_of_thread);
    const DWORD m_ended = TlsAlloc();
};

}  // namespace

std::shared_ptr<zMessageLoop> loop_state::current() {
    const thread_slot& slot = thread_slot::the();
    if (slot.has_thread_ended()) return ended_loop::make_handle();
    if (const thread_entry* entry = slot.get()) return entry->handle;
    auto loop = std::make_shared<queue_loop>();
    auto handle = queue_loop::make_handle(loop);
    auto entry = std::make_unique<thread_entry>(thread_entry{loop, handle});
    if (slot.set(entry.get())) return entry.release()->handle;
    const DWORD error = GetLastError();
    zTraceManager::Default()->TraceNote("zMessageLoop: FlsSetValue failed (err=%lu)\n", error);
    loop->end();
    return ended_loop::make_handle();
}

queue_calls& queue_calls_in_use() {
    static queue_calls s_calls;
    return s_calls;
}

}  // namespace loam
