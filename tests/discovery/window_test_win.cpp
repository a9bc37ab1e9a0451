// window_test_win.cpp - the hidden window to which events of DNS-SD sockets come.
#include <windows.h>

#include <vector>

#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class NotificationWindow : public FakeNetwork {
protected:
    static std::vector<HWND> windows() {
        std::vector<HWND> all;
        EnumThreadWindows(
            GetCurrentThreadId(),
            [](HWND window, LPARAM out) -> BOOL {
                wchar_t name[16] = {};
                GetClassNameW(window, name, 16);
                if (std::wstring(name) == L"Static") {
                    reinterpret_cast<std::vector<HWND>*>(out)->push_back(window);
                }
                return TRUE;
            },
            reinterpret_cast<LPARAM>(&all));
        return all;
    }
};

TEST_F(NotificationWindow, IsOneForAllAndHidden) {
    EXPECT_TRUE(windows().empty());
    cBonjour first, second;
    ASSERT_EQ(first.Service_Register(k_http, 1, nullptr), 0);
    ASSERT_EQ(windows().size(), 1u);
    const HWND window = windows()[0];
    EXPECT_EQ(GetWindowTextLengthW(window), 0);
    // The system gives the first of these to every window of this style.
    EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & ~LONG_PTR{WS_CLIPSIBLINGS}, 0x00CF0000);
    EXPECT_FALSE(IsWindowVisible(window));
    EXPECT_EQ(GetWindow(window, GW_OWNER), nullptr);
    EXPECT_EQ(GetMenu(window), nullptr);
    RECT place{};
    GetWindowRect(window, &place);
    EXPECT_EQ(place.left, -100);
    EXPECT_EQ(place.top, -100);

    ASSERT_EQ(second.StartObserving(1, k_http, 0), 0);
    EXPECT_EQ(windows(), std::vector<HWND>{window});
    EXPECT_EQ(first.Service_Unregister(k_http, 1), 0);
    EXPECT_EQ(windows(), std::vector<HWND>{window}) << "somebody still uses it";
    second.StopObserving(1);
    EXPECT_TRUE(windows().empty());
}

TEST_F(NotificationWindow, LeavesOtherMessagesToItsClass) {
    cBonjour bonjour;
    ASSERT_EQ(bonjour.Service_Register(k_http, 1, nullptr), 0);
    ASSERT_EQ(windows().size(), 1u);
    const HWND window = windows()[0];
    EXPECT_TRUE(SetWindowTextW(window, L"text"));
    wchar_t text[16] = {};
    EXPECT_EQ(GetWindowTextW(window, text, 16), 4);
    EXPECT_STREQ(text, L"text");
    // Messages of places that hold nothing, and those beside the places.
    for (const UINT message : {WM_USER - 1, WM_USER + 7, WM_USER + 254, WM_USER + 255}) {
        EXPECT_EQ(SendMessageW(window, message, 0, 0), 0);
    }
}

}  // namespace
}  // namespace pennywort::tests
