// x_screen.h - an X server without a screen and a window on it, for the tests of windowed pages.
// Linux only: x_screen_linux.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "loam/window_types.h"

namespace pennywort::runtime_test {

// Starts an X server of its own and names it in DISPLAY; ends it with the object.
class x_screen {
public:
    // Null when no server can be had.
    static std::unique_ptr<x_screen> make();
    virtual ~x_screen() = default;

    // A mapped top-level window, as a host would make it.
    virtual HWND make_window(int width, int height) = 0;
    virtual void destroy_window(HWND window) = 0;
    virtual void resize_window(HWND window, int width, int height) = 0;
    virtual std::vector<HWND> children(HWND window) = 0;
    virtual bool size(HWND window, long& width, long& height) = 0;
    // Colour 0xRRGGBB in the middle of a window; -1 if it cannot be read.
    virtual std::int32_t centre_colour(HWND window) = 0;
    // The window's class, empty if it has none.
    virtual std::string class_name(HWND window) = 0;
    // A window below `parent`, not mapped.
    virtual HWND make_child(HWND parent) = 0;
};

}  // namespace pennywort::runtime_test
