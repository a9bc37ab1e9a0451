// opened_windows_test.cpp - windows that pages open, and pages that close themselves.
#include <string>

#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class OpenedWindows : public HostilePage {};

TEST_F(OpenedWindows, AWindowThatThePageOpensNeverReachesTheRenderer) {
    const std::string inner = m_peer.html(
        "<body style='margin:0;background:#0f0'><script>"
        "window.hostApp.execute('inner', document.visibilityState)</script>");
    shown_page page({.url = m_peer.html("<body style='margin:0;background:#f00'>"
                                        "<script>window.inner = open('" +
                                        inner + "', '', 'width=500,height=300')</script>")});
    bool strange = false;
    page.frames.on_frame = [&] {
        strange |= page.frames.size() != std::pair(64L, 48L) || page.frames.centre() == k_green;
    };
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("inner") == 1; }));
    run_loop_for(500);
    page->Repaint();
    EXPECT_TRUE(page.wait_for_colour(k_red));
    EXPECT_FALSE(strange);
    EXPECT_EQ(page.frames.popup_count(), 0);
    // What happens to that window's loads is not the display's affair.
    EXPECT_FALSE(page.events.has_loaded(inner));
    page.close();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(OpenedWindows, WindowsWithoutEndAreRefusedAndGoWithTheDisplay) {
    shown_page page(
        {.url = m_peer.html("<body style='margin:0;background:#f00'>"), .max_popups = 8});
    ASSERT_TRUE(page.wait_until_loaded());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    const std::string inner = m_peer.html_of_other_origin("<body style='background:#0f0'>");
    page.run(
        "window.opened = 0; window.tried = 0; window.timer = setInterval(() => {"
        "  tried++; if (open('" +
        inner +
        "', 'name' + tried)) opened++;"
        "  if (tried == 60) window.hostApp.execute('tried', opened); }, 10)");
    ASSERT_TRUE(wait_for([&] { return page.calls.argument_of("tried").has_value(); }));
    const int opened = std::stoi(*page.calls.argument_of("tried"));
    EXPECT_GT(opened, 0);
    EXPECT_LE(opened, 8);
    page.close();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(OpenedWindows, AWindowThatClosesItselfMakesRoomForAnother) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    const std::string inner = m_peer.html("<script>setTimeout(close, 1)</script>");
    page.run(
        "window.opened = 0; setInterval(() => {"
        "  if (open('" +
        inner +
        "')) opened++;"
        "  if (opened == 20) window.hostApp.execute('opened', opened); }, 60)");
    EXPECT_TRUE(wait_for([&] { return page.calls.count_of("opened") > 0; }))
        << PrintToString(page.ask("return opened"));
}

TEST_F(OpenedWindows, APageThatClosesItselfEndsItsDisplayQuietly) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.close()");
    EXPECT_TRUE(wait_for([&] {
        return page->ExecuteJavascript(zString("1"), 0, std::function<void(std::string)>()) == -1;
    }));
    page->SetSize(10, 10);
    page->Repaint();
    page->LoadUrl(m_peer.html("<body>").c_str());
    EXPECT_FALSE(page->IsLoading());
    page.close();
}

}  // namespace
}  // namespace pennywort::runtime_test
