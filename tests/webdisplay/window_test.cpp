// window_test.cpp - a display in a window of its host, as far as it goes without a window system.
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;

constexpr std::uintptr_t k_parent = 0x5100;
constexpr std::uintptr_t k_browser_window = 0x5200;

HWND as_window(std::uintptr_t number) { return reinterpret_cast<HWND>(number); }

class WindowTest : public FakeRuntimeTest {
protected:
    void SetUp() override {
        FakeRuntimeTest::SetUp();
        if (HasFatalFailure()) return;
        script().window_handle = k_browser_window;
        start();
    }
    bool handle(UINT message, WPARAM wparam = 0) {
        m_result = 77;
        return m_screen.engine().HandleWindowMessage(as_window(k_parent), message, wparam, 0,
                                                     m_result);
    }
    void show_in_window() {
        m_screen.engine().SetParentWindow(as_window(k_parent));
        show(m_screen);
    }
    void TearDown() override {
        m_screen.release();
        FakeRuntimeTest::TearDown();
    }

    LRESULT m_result = 0;
    screen m_screen{page("http://a/", 3, 200)};
};

TEST_F(WindowTest, AsksForAChildOfTheHostsWindow) {
    show_in_window();
    const fake_cef_browser b = fake().browser(1);
    EXPECT_FALSE(b.windowless);
    EXPECT_EQ(b.parent_window, k_parent);
    EXPECT_EQ(b.width, 3) << "in a window the size is not rounded up";
    EXPECT_EQ(b.height, 200);
    EXPECT_EQ(b.background_color, 0xCC27282Bu);
    EXPECT_FALSE(b.external_begin_frame);
}

TEST_F(WindowTest, ANullWindowGoesBackOffScreen) {
    m_screen.engine().SetParentWindow(as_window(k_parent));
    m_screen.engine().SetParentWindow(nullptr);
    show(m_screen);
    EXPECT_TRUE(fake().browser(1).windowless);
    EXPECT_EQ(fake().browser(1).parent_window, 0u);
}

TEST_F(WindowTest, VisibilityAndRepaintAreTheWindowsOwnAffair) {
    show_in_window();
    m_screen->SetVisibility(false);
    m_screen->Repaint();
    m_screen->SetSize(50, 60);
    const fake_cef_browser b = fake().browser(1);
    EXPECT_TRUE(b.hides.empty());
    EXPECT_TRUE(b.invalidates.empty());
    EXPECT_EQ(b.resizes, 0);
    EXPECT_FALSE(m_screen->NextFrame());
}

TEST_F(WindowTest, CloseLeavesTheBrowserToItsWindow) {
    show_in_window();
    m_screen->Close();
    EXPECT_EQ(fake().browser(1).closes, 0);
    EXPECT_EQ(m_screen->ExecuteJavascript("x", 0, {}), -1);
    // The window goes, and with it the browser, which finds no display any more.
    fake().post([] { fake().close_from_page(1); });
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
}

TEST_F(WindowTest, PaintAndEraseAreHandled) {
    EXPECT_TRUE(handle(WM_PAINT));
    EXPECT_EQ(m_result, 0);
    EXPECT_FALSE(handle(WM_ERASEBKGND)) << "no browser covers the window yet";
    show_in_window();
    EXPECT_TRUE(handle(WM_ERASEBKGND));
    EXPECT_EQ(m_result, 0);
}

TEST_F(WindowTest, FocusIsPassedOn) {
    EXPECT_TRUE(handle(WM_SETFOCUS));
    EXPECT_EQ(m_result, 0);
    show_in_window();
    EXPECT_TRUE(handle(WM_SETFOCUS));
    EXPECT_TRUE(handle(WM_KILLFOCUS));
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(fake().browser(1).focuses, (std::vector<bool>{true, false}));
}

TEST_F(WindowTest, MovesCloseThePagesPopups) {
    show_in_window();
    EXPECT_TRUE(handle(WM_MOVE));
    EXPECT_EQ(m_result, 0);
    EXPECT_TRUE(handle(WM_MOVING));
    EXPECT_FALSE(handle(WM_PARENTNOTIFY));
    EXPECT_EQ(fake().browser(1).move_notices, 3);
}

TEST_F(WindowTest, TheWheelClosesThemAndIsPassedOn) {
    show_in_window();
    EXPECT_FALSE(handle(WM_MOUSEWHEEL));
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(fake().browser(1).move_notices, 1);
}

TEST_F(WindowTest, ASizeIsNoticedWhenThereIsABrowserWindow) {
    EXPECT_FALSE(handle(WM_SIZE, SIZE_RESTORED));
    show_in_window();
    EXPECT_FALSE(handle(WM_SIZE, SIZE_MINIMIZED));
    EXPECT_EQ(fake().browser(1).move_notices, 1);
    script().window_handle = 0;
    EXPECT_FALSE(handle(WM_SIZE, SIZE_RESTORED));
    EXPECT_EQ(fake().browser(1).move_notices, 1);
}

TEST_F(WindowTest, OtherMessagesAreNotHandled) {
    show_in_window();
    EXPECT_FALSE(handle(0));
    EXPECT_FALSE(handle(WM_USER + 5));
    EXPECT_EQ(m_result, 77);
}

TEST_F(WindowTest, AWindowThatDoesNotExistHasNoEditableElement) {
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(nullptr));
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(as_window(1)));
}

TEST_F(WindowTest, AWindowedPageLoadsAndSpeaksLikeAnyOther) {
    show_in_window();
    EXPECT_TRUE(m_screen.seen.heard("loaded http://a/"));
    m_screen->LoadUrl("http://b/");
    EXPECT_TRUE(loop_until([&] { return m_screen.seen.heard("loaded http://b/"); }));
    EXPECT_TRUE(m_screen.seen.frames.empty());
}

}  // namespace
