// loam/loop_state_win.cpp - Windows half of loam/loop_state.h, over the thread's message queue.
// Linux half: loop_state_linux.cpp.
//
// A message-only window per thread carries all posted work, so that any message pump of the thread
// delivers it: the host's own, ours, and those that the system runs inside a dialogue.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <utility>

#include "loam/ended_loop.h"
#include "loam/loop_state.h"
#include "loam/message_loop.h"
#include "loam/posted_work.h"
#include "loam/trace.h"

namespace loam {
namespace {

using clock = std::chrono::steady_clock;

constexpr UINT k_work_message = WM_APP;
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

HWND make_window() {
    static const ATOM registered = [] {
        WNDCLASSEXW type{};
        type.cbSize = sizeof type;
        type.lpfnWndProc = work_procedure;
        type.hInstance = own_module();
        type.lpszClassName = k_window_class;
        return RegisterClassExW(&type);
    }();
    if (registered == 0) return nullptr;
    return CreateWindowExW(0, k_window_class, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           own_module(), nullptr);
}

class queue_loop final : public loop_state {
public:
    queue_loop()
        : m_window(make_window()),
          m_work([this] { ask_for_turn(); }, [this] { m_waiting.store(false); }) {
        if (m_window.load() == nullptr) {
            zTraceManager::Default()->TraceNote("zMessageLoop: CreateWindowExW failed (err=%lu)\n",
                                                GetLastError());
            return;
        }
        SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }

    static std::shared_ptr<zMessageLoop> make_handle(const std::shared_ptr<queue_loop>& loop) {
        return handle_of(loop);
    }

    void run() override {
        ++m_runs;
        while (!m_quit.exchange(false)) {
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
        bool done = dispatch_ready();
        // A wait may end with nothing to dispatch: a message that another thread sent was answered.
        while (!done && clock::now() < end) {
            wait_for_messages(end - clock::now());
            done = dispatch_ready();
        }
        return done;
    }

    zStatus post(std::function<void()> work) override {
        return m_work.post(std::move(work)) ? 0 : -1;
    }

    void request_quit() override {
        m_quit.store(true);
        PostMessageW(m_window, k_work_message, 0, 0);
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
        if (!m_waiting.load()) return false;
        // Asked for before the work is done: work may run a loop of its own, or leave something
        // behind that came after this turn began.
        PostMessageW(m_window, k_work_message, 0, 0);
        return m_work.run_some();
    }

private:
    void ask_for_turn() {
        m_waiting.store(true);
        PostMessageW(m_window, k_work_message, 0, 0);
    }

    bool is_work(const MSG& message) const {
        return message.message == k_work_message && message.hwnd == m_window.load();
    }

    // Whether something was done: a work message may come late, when the work has been done.
    bool dispatch(const MSG& message) {
        if (is_work(message)) return take_turn();
        TranslateMessage(&message);
        DispatchMessageW(&message);
        return true;
    }

    bool dispatch_ready() {
        bool done = false;
        MSG message;
        for (int i = 0; i < k_most_messages; ++i) {
            if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) break;
            if (message.message == WM_QUIT) {
                // It is meant for a run further up the stack.
                PostQuitMessage(static_cast<int>(message.wParam));
                break;
            }
            const bool was_work = is_work(message);
            done = dispatch(message) || done;
            // Work that posts work must not keep its caller here.
            if (was_work && done) break;
        }
        return done;
    }

    static void wait_for_messages(clock::duration time) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(time).count();
        MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(std::max<long long>(ms, 0)),
                                    QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    }

    std::atomic<HWND> m_window;
    std::atomic<bool> m_waiting{false};
    std::atomic<bool> m_quit{false};
    posted_work m_work;
    int m_runs = 0;
};

LRESULT CALLBACK work_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message != k_work_message) return DefWindowProcW(window, message, wparam, lparam);
    auto* const loop = reinterpret_cast<queue_loop*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (loop != nullptr) loop->take_turn();
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
    void set(thread_entry* entry) const { FlsSetValue(m_entry, entry); }
    bool thread_ended() const { return TlsGetValue(m_ended) != nullptr; }

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
    if (slot.thread_ended()) return ended_loop::make_handle();
    if (const thread_entry* entry = slot.get()) return entry->handle;
    auto loop = std::make_shared<queue_loop>();
    auto handle = queue_loop::make_handle(loop);
    slot.set(new thread_entry{std::move(loop), handle});
    return handle;
}

}  // namespace loam
