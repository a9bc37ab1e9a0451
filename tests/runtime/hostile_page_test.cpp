// hostile_page_test.cpp - pages that hang, never come whole, or reload for ever: the display
// closes, or shows the next page.
#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class Hostile : public HostilePage {};

TEST_F(Hostile, APageThatNeverComesBackFromAScriptCloses) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('hanging', 1); while (true) {}");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("hanging") == 1; }));
    page.run("1");
    page->SetSize(200, 100);
    page->Repaint();
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, APageThatNeverComesBackFromAScriptGivesWayToTheNext) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page.run("window.hostApp.execute('hanging', 1); while (true) {}");
    ASSERT_TRUE(wait_for([&] { return page.calls.count_of("hanging") == 1; }));
    expect_to_show(page, m_peer.html_of_other_origin(k_green_page));
}

TEST_F(Hostile, APageThatHangsWhileItLoadsCloses) {
    shown_page page({.url = m_peer.html("<script>while (true) {}</script>")});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading(); }));
    run_loop_for(300);
    page.close();
    EXPECT_EQ(traces().find("did not close the page in time"), std::string::npos) << traces();
    EXPECT_TRUE(at_most_a_spare_renderer()) << PrintToString(processes_below("renderer"));
}

TEST_F(Hostile, APageThatIsNeverSentWholeIsShownAsFarAsItCame) {
    shown_page page({.url = m_peer.url("/half")});
    EXPECT_TRUE(page.wait_for_colour(k_blue));
    EXPECT_TRUE(page->IsLoading());
    page.close();
}

TEST_F(Hostile, APageThatReloadsItselfForEverLetsTheNextOneIn) {
    shown_page page({.url = m_peer.html("<script>location.reload()</script>")});
    ASSERT_TRUE(wait_for([&] { return page.events.loaded.size() > 3; }));
    page.close();
}

}  // namespace
}  // namespace pennywort::runtime_test
