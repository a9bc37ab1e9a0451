// socket_events_win.cpp - Windows half of socket_events.h. Linux half: socket_events_linux.cpp.
//
// A hidden window of the thread, to which the system posts what happens on the sockets: any message
// pump of the thread serves.
#include "discovery/socket_events.h"

#include <windows.h>
#include <winsock2.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "loam/trace.h"

namespace pennywort::discovery {

namespace {

constexpr UINT k_first_message = WM_USER;
constexpr UINT k_last_message = WM_USER + 254;

// `error` is read at once: every call in between may change it.
void trace_failure(const char* call, DWORD error) {
    zTraceManager::Default()->TraceNote("cBonjour: %s - failed (err=%lu)\n", call, error);
}

// What stood there before may have been 0, which a failure returns too.
LONG_PTR set_window_value(HWND window, int index, LONG_PTR value) {
    SetLastError(ERROR_SUCCESS);
    const LONG_PTR before = SetWindowLongPtrW(window, index, value);
    const DWORD error = GetLastError();
    if (before == 0 && error != ERROR_SUCCESS) trace_failure("SetWindowLongPtrW", error);
    return before;
}

// Whether Winsock can be used as long as this lives.
class winsock {
public:
    winsock() {
        WSADATA data{};
        const int error = WSAStartup(MAKEWORD(2, 2), &data);
        m_is_up = error == 0;
        if (!m_is_up) trace_failure("WSAStartup", static_cast<DWORD>(error));
    }
    winsock(const winsock&) = delete;
    winsock& operator=(const winsock&) = delete;
    ~winsock() {
        if (m_is_up && WSACleanup() != 0) {
            trace_failure("WSACleanup", static_cast<DWORD>(WSAGetLastError()));
        }
    }

private:
    bool m_is_up = false;
};

class window_events final : public socket_events {
public:
    explicit window_events(arrived call)
        : m_call(std::make_shared<const arrived>(std::move(call))) {}

    ~window_events() override {
        if (m_window == nullptr) return;
        set_window_value(m_window, GWLP_USERDATA, 0);
        set_window_value(m_window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_previous));
        if (DestroyWindow(m_window)) return;
        const DWORD error = GetLastError();
        // It goes with its thread.
        if (error == ERROR_INVALID_WINDOW_HANDLE) return;
        trace_failure("DestroyWindow", error);
        // Only its own thread may destroy it.
        if (PostMessageW(m_window, WM_CLOSE, 0, 0)) return;
        trace_failure("PostMessageW", GetLastError());
    }

    bool make_window() {
        m_window = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPEDWINDOW, -100, -100, 10, 10,
                                   nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
        if (m_window == nullptr) {
            trace_failure("CreateWindowExW", GetLastError());
            return false;
        }
        set_window_value(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        m_previous = reinterpret_cast<WNDPROC>(set_window_value(
            m_window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&window_events::procedure)));
        return m_previous != nullptr;
    }

    bool watch(int socket, int number) override {
        const auto message = static_cast<UINT>(static_cast<int>(WM_USER) + number);
        return is_window_there() && select_events(socket, message, FD_READ | FD_CLOSE);
    }

    void unwatch(int socket) override { select_events(socket, 0, 0); }

private:
    // Wine takes a window that is gone, and then nothing would ever come.
    bool is_window_there() const {
        if (IsWindow(m_window)) return true;
        trace_failure("IsWindow", GetLastError());
        return false;
    }

    bool select_events(int socket, UINT message, long events) {
        const auto handle = static_cast<SOCKET>(socket);
        if (WSAAsyncSelect(handle, m_window, message, events) == 0) return true;
        const int error = WSAGetLastError();
        trace_failure("WSAAsyncSelect", static_cast<DWORD>(error));
        return false;
    }

    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
        const auto* const events =
            reinterpret_cast<window_events*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (events == nullptr) return DefWindowProcW(window, message, wparam, lparam);
        const LRESULT result = CallWindowProcW(events->m_previous, window, message, wparam, lparam);
        if (message < k_first_message || message > k_last_message) return result;
        // The call may end the window, and what it calls with it. What it returns says nothing
        // here: a closed socket is told once.
        const std::shared_ptr<const arrived> call = events->m_call;
        (*call)(static_cast<int>(message - k_first_message));
        return result;
    }

    const winsock m_winsock;
    const std::shared_ptr<const arrived> m_call;
    HWND m_window = nullptr;
    WNDPROC m_previous = nullptr;
};

static_assert(WS_OVERLAPPEDWINDOW == 0x00CF0000);
static_assert(k_first_message == 0x400 && k_last_message == 0x4FE);

}  // namespace

std::unique_ptr<socket_events> socket_events::make(arrived call) {
    auto events = std::make_unique<window_events>(std::move(call));
    if (!events->make_window()) return nullptr;
    return events;
}

arrival wait_for_arrival(int socket, int timeout_ms) {
    const auto handle = static_cast<SOCKET>(socket);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(handle, &readable);
    timeval time{timeout_ms / 1000, timeout_ms % 1000 * 1000};
    const int ready = select(0, &readable, nullptr, nullptr, &time);
    if (ready == SOCKET_ERROR) {
        const int error = WSAGetLastError();
        zTraceManager::Default()->TraceNote("cBonjour: select failed (err=%d)\n", error);
    }
    if (ready > 0) return arrival::there;
    return ready == 0 ? arrival::timed_out : arrival::failed;
}

}  // namespace pennywort::discovery
