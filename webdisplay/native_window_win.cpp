// native_window_win.cpp - Windows half of native_window.h, over User32. Linux half:
// native_window_linux.cpp.
#include "webdisplay/native_window.h"

#include <windows.h>

#include <iterator>

#include "loam/trace.h"

namespace pennywort::webdisplay::native_window {

namespace {

constexpr DWORD k_child_style =
    WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS | WS_VISIBLE | WS_TABSTOP;
static_assert(k_child_style == 0x56010000);

// A window that has gone is nobody's fault, whatever was asked of it. The error is read at once:
// every call in between may change it.
void check(bool is_done, const char* call) {
    if (is_done) return;
    const DWORD error = GetLastError();
    if (error == ERROR_SUCCESS || error == ERROR_INVALID_WINDOW_HANDLE) return;
    zTraceManager::Default()->TraceNote("cWebDisplayCEFBrowser: %s - failed (err=%lu)\n", call,
                                        error);
}

}  // namespace

void fill_child(cef_window_info_t& info, HWND parent, int width, int height) {
    info.style = k_child_style;
    info.parent_window = parent;
    info.bounds = cef_rect_t{0, 0, width, height};
}

void mark_browser(cef_window_handle_t) {}  // the runtime gives its windows the class itself

void resize(cef_window_handle_t window, long width, long height) {
    check(SetWindowPos(window, HWND_TOP, 0, 0, static_cast<int>(width), static_cast<int>(height),
                       SWP_NOZORDER) != 0,
          "SetWindowPos");
}

bool client_size(HWND window, long& width, long& height) {
    RECT inside{};
    const bool is_known = GetClientRect(window, &inside) != 0;
    check(is_known, "GetClientRect");
    if (!is_known) return false;
    width = inside.right - inside.left;
    height = inside.bottom - inside.top;
    return true;
}

void validate(HWND window) {
    PAINTSTRUCT paint{};
    SetLastError(ERROR_SUCCESS);  // BeginPaint need not set it
    const bool has_begun = BeginPaint(window, &paint) != nullptr;
    check(has_begun, "BeginPaint");
    if (has_begun) check(EndPaint(window, &paint) != 0, "EndPaint");
}

std::string class_name(HWND window) {
    char name[64];
    const int length = GetClassNameA(window, name, static_cast<int>(std::size(name)));
    check(length > 0, "GetClassNameA");
    return length > 0 ? std::string(name, static_cast<std::size_t>(length)) : std::string();
}

bool exists(cef_window_handle_t window) { return IsWindow(window) != 0; }

bool browser_goes_with_its_window() noexcept { return true; }

HWND parent(HWND window) {
    SetLastError(ERROR_SUCCESS);  // one at the top has no parent, which is no failure
    const HWND found = GetParent(window);
    check(found != nullptr, "GetParent");
    return found;
}

}  // namespace pennywort::webdisplay::native_window
