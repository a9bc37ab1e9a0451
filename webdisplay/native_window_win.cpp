// native_window_win.cpp - Windows half of native_window.h, over User32. Linux half:
// native_window_linux.cpp.
#include "webdisplay/native_window.h"

#include <windows.h>

#include <iterator>

namespace pennywort::webdisplay::native_window {

namespace {

constexpr DWORD k_child_style =
    WS_CHILD | WS_CLIPCHILDREN | WS_CLIPSIBLINGS | WS_VISIBLE | WS_TABSTOP;
static_assert(k_child_style == 0x56010000);

}  // namespace

void fill_child(cef_window_info_t& info, HWND parent, int width, int height) {
    info.style = k_child_style;
    info.parent_window = parent;
    info.bounds = cef_rect_t{0, 0, width, height};
}

void mark_browser(cef_window_handle_t) {}  // the runtime gives its windows the class itself

void resize(cef_window_handle_t window, long width, long height) {
    SetWindowPos(window, HWND_TOP, 0, 0, static_cast<int>(width), static_cast<int>(height),
                 SWP_NOZORDER);
}

bool client_size(HWND window, long& width, long& height) {
    RECT inside{};
    if (!GetClientRect(window, &inside)) return false;
    width = inside.right - inside.left;
    height = inside.bottom - inside.top;
    return true;
}

void validate(HWND window) {
    PAINTSTRUCT paint{};
    if (BeginPaint(window, &paint) != nullptr) EndPaint(window, &paint);
}

std::string class_name(HWND window) {
    char name[64];
    const int length = GetClassNameA(window, name, static_cast<int>(std::size(name)));
    return length > 0 ? std::string(name, static_cast<std::size_t>(length)) : std::string();
}

bool exists(cef_window_handle_t window) { return IsWindow(window) != 0; }

bool browser_goes_with_its_window() noexcept { return true; }

HWND parent(HWND window) { return GetParent(window); }

}  // namespace pennywort::webdisplay::native_window
