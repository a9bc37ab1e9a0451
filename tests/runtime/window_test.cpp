// window_test.cpp - pages in a window of the host, on a real X server.
#include <gtest/gtest.h>

#include <memory>

#include "harness.h"
#include "x_screen.h"

namespace pennywort::runtime_test {
namespace {

constexpr std::int32_t k_red_pixel = 0xFF0000;

class WindowTest : public RuntimeTest {
protected:
    void add_switches() override {
        for (const char* name : {"disable-gpu-compositing", "disable-dev-shm-usage"}) {
            cWebDisplayCEFBrowserManager::AddCommandLineSwitch(name, "");
        }
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("ozone-platform", "x11");
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("use-gl", "angle");
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("use-angle", "swiftshader");
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("enable-unsafe-swiftshader", "");
    }
    void prepare() override {
        m_screen = x_screen::make();
        ASSERT_NE(m_screen, nullptr) << "Xvfb is missing: scripts/install-deps brings it";
        m_parent = m_screen->make_window(320, 240);
    }
    void TearDown() override {
        if (m_display) {
            m_display->Close();
            m_display->Release();
        }
        RuntimeTest::TearDown();
        m_screen.reset();
    }

    void open(const std::string& html) {
        page_settings settings;
        settings.url = page_url(html);
        settings.width = 320;
        settings.height = 240;
        m_display = make_display(settings);
        m_display->SetPageCallbackReceiver(&m_events);
        m_display->SetJavascriptCallbackReceiver(&m_calls);
        m_display->SetVideoRenderer(&m_frames);
        m_display->SetParentWindow(m_parent);
        ASSERT_TRUE(m_display->Open());
        ASSERT_TRUE(wait_for([&] { return !m_events.loaded.empty(); }));
        ASSERT_TRUE(wait_for([&] { return !m_screen->children(m_parent).empty(); }));
        m_window = m_screen->children(m_parent).front();
    }
    bool has_size(HWND window, long width, long height) {
        return wait_for([&] {
            long w = 0;
            long h = 0;
            return m_screen->size(window, w, h) && w == width && h == height;
        });
    }
    bool send(UINT message, WPARAM wparam, LRESULT& result) {
        return m_display->HandleWindowMessage(m_parent, message, wparam, 0, result);
    }

    std::unique_ptr<x_screen> m_screen;
    HWND m_parent = nullptr;
    HWND m_window = nullptr;  // the page's own, below the parent
    cWebDisplayCEFBrowser* m_display = nullptr;
    kept_page_events m_events;
    kept_calls m_calls;
    kept_frames m_frames;
};

TEST_F(WindowTest, ThePageIsAChildOfTheHostsWindowAndShowsItself) {
    open("<body style='margin:0;background:#f00'>");
    EXPECT_TRUE(has_size(m_window, 320, 240));
    EXPECT_EQ(m_screen->class_name(m_window).substr(0, 16), "CefBrowserWindow");
    EXPECT_TRUE(wait_for([&] { return m_screen->centre_colour(m_parent) == k_red_pixel; }));
    EXPECT_EQ(m_frames.count(), 0) << "a page in a window paints nothing off screen";
}

TEST_F(WindowTest, ItFollowsTheSizeOfTheHostsWindow) {
    open("<body style='margin:0;background:#f00'>");
    m_screen->resize_window(m_parent, 400, 300);
    LRESULT result = 7;
    EXPECT_FALSE(send(WM_SIZE, SIZE_RESTORED, result));
    EXPECT_TRUE(has_size(m_window, 400, 300));
    EXPECT_FALSE(send(WM_SIZE, SIZE_MINIMIZED, result));
    EXPECT_TRUE(has_size(m_window, 400, 300));
    m_display->SetSize(200, 100);
    EXPECT_TRUE(has_size(m_window, 200, 100));
}

TEST_F(WindowTest, MessagesAreAnsweredAsTheHostExpects) {
    LRESULT result = 7;
    {
        page_settings settings;
        cWebDisplayCEFBrowser* closed = make_display(settings);
        EXPECT_FALSE(closed->HandleWindowMessage(m_parent, WM_ERASEBKGND, 0, 0, result));
        EXPECT_EQ(result, 7) << "without a page the host paints its own background";
        closed->Release();
    }
    open("<body>");
    struct row {
        UINT message;
        bool handled;
        LRESULT result;
    };
    for (const row& want :
         {row{WM_PAINT, true, 0}, row{WM_ERASEBKGND, true, 0}, row{WM_SETFOCUS, true, 0},
          row{WM_KILLFOCUS, true, 0}, row{WM_MOVE, true, 0}, row{WM_MOVING, true, 0},
          row{WM_PARENTNOTIFY, false, 7}, row{WM_MOUSEWHEEL, false, 0}, row{WM_USER, false, 7}}) {
        result = 7;
        EXPECT_EQ(send(want.message, 0, result), want.handled) << want.message;
        EXPECT_EQ(result, want.result) << want.message;
    }
}

TEST_F(WindowTest, AFocusedTextFieldTakesTheKeystrokes) {
    open("<body><input id=i value=x><button id=b>b</button>");
    const auto editable = [&] {
        return cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(m_window);
    };
    EXPECT_FALSE(editable());
    m_display->ExecuteJavascript(zString("document.getElementById('i').focus()"), 0,
                                 std::function<void(std::string)>());
    LRESULT result = 0;
    send(WM_SETFOCUS, 0, result);
    // Focus events come to a page that has the focus; the bridge's own command is the same.
    m_display->ExecuteJavascript(zString("window.hostApp.execute('Focus', '1')"), 0,
                                 std::function<void(std::string)>());
    EXPECT_TRUE(wait_for(editable));
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(m_parent))
        << "the host's own window is none of the page's";
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(nullptr));
    HWND below = m_window;
    for (int depth = 0; depth < 3; ++depth) below = m_screen->make_child(below);
    EXPECT_TRUE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(below));
    for (int depth = 0; depth < 300; ++depth) below = m_screen->make_child(below);
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(below));
    m_display->ExecuteJavascript(zString("window.hostApp.execute('Focus', '0')"), 0,
                                 std::function<void(std::string)>());
    EXPECT_TRUE(wait_for([&] { return !editable(); }));
}

TEST_F(WindowTest, VisibilityAndRepaintAreLeftToTheWindow) {
    open("<body style='margin:0;background:#f00'>");
    m_display->SetVisibility(false);
    m_display->Repaint();
    EXPECT_FALSE(m_display->NextFrame());
    EXPECT_TRUE(wait_for([&] { return m_screen->centre_colour(m_parent) == k_red_pixel; }));
    EXPECT_EQ(m_frames.count(), 0);
}

TEST_F(WindowTest, AWindowThatGoesTakesItsPageAlong) {
    open("<body>");
    m_screen->destroy_window(m_parent);
    LRESULT result = 7;
    EXPECT_FALSE(send(WM_SIZE, SIZE_RESTORED, result));
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(m_parent));
    run_loop_for(200);
    m_display->Close();
}

TEST_F(WindowTest, ShutdownClosesAPageWhoseWindowIsStillThere) {
    open("<body>");
    m_display->Close();
    m_display->Release();
    m_display = nullptr;
    cWebDisplayCEFBrowserManager::Shutdown();
    EXPECT_TRUE(m_screen->children(m_parent).empty());
}

}  // namespace
}  // namespace pennywort::runtime_test
