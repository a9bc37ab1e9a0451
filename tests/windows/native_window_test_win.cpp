// native_window_test_win.cpp - what a windowed page asks of the system's windows. Needs a screen.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "webdisplay.h"
#include "webdisplay/native_window.h"

namespace pennywort::webdisplay {
namespace {

class NativeWindow : public testing::Test {
protected:
    ~NativeWindow() override {
        if (top) DestroyWindow(top);
        for (const auto& name : m_classes)
            UnregisterClassA(name.c_str(), GetModuleHandleW(nullptr));
    }
    HWND make(const std::string& type, HWND parent) {
        WNDCLASSA description{};
        description.lpfnWndProc = DefWindowProcA;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = type.c_str();
        if (RegisterClassA(&description)) m_classes.push_back(type);
        const DWORD style = parent ? WS_CHILD | WS_VISIBLE : WS_POPUP | WS_VISIBLE;
        return CreateWindowExA(0, type.c_str(), "", style, 0, 0, 320, 180, parent, nullptr,
                               GetModuleHandleW(nullptr), nullptr);
    }

    HWND top = nullptr;

private:
    std::vector<std::string> m_classes;
};

TEST_F(NativeWindow, OneThatDoesNotExistIsNoError) {
    const HWND none = reinterpret_cast<HWND>(0x7FFFFFF0);
    long width = 7;
    long height = 8;
    EXPECT_FALSE(native_window::client_size(none, width, height));
    EXPECT_EQ(width, 7);
    EXPECT_EQ(native_window::class_name(none), "");
    EXPECT_EQ(native_window::class_name(nullptr), "");
    EXPECT_EQ(native_window::parent(none), nullptr);
    native_window::resize(none, 1, 1);
    native_window::validate(none);
}

TEST_F(NativeWindow, AChildHasTheStyleThatHostsExpect) {
    top = make("PennywortTop", nullptr);
    ASSERT_NE(top, nullptr) << "no screen? scripts/test-windows gives one";
    cef_window_info_t info{};
    native_window::fill_child(info, top, 640, 360);
    EXPECT_EQ(info.style, 0x56010000u);
    EXPECT_EQ(info.parent_window, top);
    EXPECT_EQ(info.bounds.x, 0);
    EXPECT_EQ(info.bounds.y, 0);
    EXPECT_EQ(info.bounds.width, 640);
    EXPECT_EQ(info.bounds.height, 360);
}

TEST_F(NativeWindow, ResizingMovesToTheCornerAndKeepsTheStack) {
    top = make("PennywortTop", nullptr);
    const HWND first = make("PennywortChild", top);
    const HWND second = make("PennywortChild", top);
    SetWindowPos(first, HWND_TOP, 5, 6, 70, 80, 0);
    ASSERT_EQ(GetTopWindow(top), first);
    native_window::resize(second, 200, 100);
    EXPECT_EQ(GetTopWindow(top), first);
    native_window::resize(first, 30, 40);
    long width = 0;
    long height = 0;
    ASSERT_TRUE(native_window::client_size(first, width, height));
    EXPECT_EQ(width, 30);
    EXPECT_EQ(height, 40);
    POINT corner{};
    MapWindowPoints(first, top, &corner, 1);
    EXPECT_EQ(corner.x, 0);
    EXPECT_EQ(corner.y, 0);
}

TEST_F(NativeWindow, ValidatingLeavesNothingToPaint) {
    top = make("PennywortTop", nullptr);
    InvalidateRect(top, nullptr, FALSE);
    ASSERT_TRUE(GetUpdateRect(top, nullptr, FALSE));
    native_window::validate(top);
    EXPECT_FALSE(GetUpdateRect(top, nullptr, FALSE));
}

TEST_F(NativeWindow, AClassNameIsCutAfter63Characters) {
    const std::string name(200, 'n');
    top = make(name, nullptr);
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(native_window::class_name(top), name.substr(0, 63));
}

// The flag itself is set by pages, which the tests of the bridge show; here it is false, and a
// query that finds no browser window must answer the same, however deep the windows lie.
TEST_F(NativeWindow, TheFocusQueryEndsInEveryTreeOfWindows) {
    top = make("CefBrowserWindow_0", nullptr);
    HWND deep = top;
    for (int i = 0; i < 40 && deep; ++i) deep = make("PennywortChild", deep);
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(native_window::parent(GetTopWindow(top)), top);
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(deep));
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(nullptr));
}

}  // namespace
}  // namespace pennywort::webdisplay
