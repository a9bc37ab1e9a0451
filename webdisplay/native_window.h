// native_window.h - the few things that a windowed page needs of the system's windows.
// Twins: native_window_win.cpp, native_window_linux.cpp. From any thread. A window that does not
// exist (any more) is never an error: questions return nothing, and orders are ignored.
#pragma once

#include <cstddef>
#include <string>

#include "cef_abi.h"
#include "loam/window_types.h"

namespace pennywort::webdisplay::native_window {

// Makes `info` ask for a browser that is a child window of `parent`.
void fill_child(cef_window_info_t& info, HWND parent, int width, int height);

// Marks a browser's window, so that class_name can recognise it.
void mark_browser(cef_window_handle_t window);

// Moves a window to 0, 0 of its parent and gives it a size, leaving its place in the stack.
void resize(cef_window_handle_t window, long width, long height);

// Size of the inside of a window; false if there is no such window.
bool client_size(HWND window, long& width, long& height);

// The window needs no painting any more.
void validate(HWND window);

// Name of the window's class, at most 63 characters; empty if there is none.
std::string class_name(HWND window);

HWND parent(HWND window);

// Whether there still is such a window.
bool exists(cef_window_handle_t window);

// Whether a browser ends by itself when the host destroys the window that it lives in. Where it
// does not, it must be asked to close.
bool browser_goes_with_its_window() noexcept;

}  // namespace pennywort::webdisplay::native_window
