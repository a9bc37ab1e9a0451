// loam/window_types.h - the Windows names that public signatures need on Linux, and no others.
// The header of the same name for Windows stands in include_win.
//
// An HWND holds the number of an X11 window, converted with reinterpret_cast; null is no window.
#pragma once

#include <cstdint>

struct HWND__;
using HWND = HWND__*;
using UINT = std::uint32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

inline constexpr UINT WM_MOVE = 0x0003;
inline constexpr UINT WM_SIZE = 0x0005;
inline constexpr UINT WM_SETFOCUS = 0x0007;
inline constexpr UINT WM_KILLFOCUS = 0x0008;
inline constexpr UINT WM_PAINT = 0x000F;
inline constexpr UINT WM_ERASEBKGND = 0x0014;
inline constexpr UINT WM_MOUSEWHEEL = 0x020A;
inline constexpr UINT WM_PARENTNOTIFY = 0x0210;
inline constexpr UINT WM_MOVING = 0x0216;
inline constexpr UINT WM_USER = 0x0400;

// The WPARAM of WM_SIZE.
inline constexpr WPARAM SIZE_RESTORED = 0;
inline constexpr WPARAM SIZE_MINIMIZED = 1;
inline constexpr WPARAM SIZE_MAXIMIZED = 2;
