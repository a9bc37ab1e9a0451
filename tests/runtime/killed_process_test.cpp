// killed_process_test.cpp - processes of the runtime that are killed under a display: it goes on or
// closes, and so do the others.
#include <signal.h>

#include <algorithm>

#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class KilledProcess : public HostilePage {};

void kill_all(const std::string& type) {
    const auto victims = processes_below(type);
    ASSERT_FALSE(victims.empty()) << PrintToString(processes_below());
    for (const process& one : victims) kill(one.id, SIGKILL);
}

TEST_F(KilledProcess, AKilledRendererStopsTheFramesUntilAPageIsLoadedAgain) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    EXPECT_TRUE(page.comes_to_rest());
    const long stopped = page.frames.count();

    page->LoadUrl(animated_url().c_str());
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > stopped + 5; }))
        << page.frames.count() - stopped;
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
}

TEST_F(KilledProcess, ADisplayWhoseRendererWasKilledCloses) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    run_loop_for(200);
    page->SetSize(100, 100);
    page->Repaint();
    page.run("1");
    page.close();
    shown_page next({.url = animated_url()});
    EXPECT_TRUE(wait_for([&] { return next.frames.count() > 5; }));
}

TEST_F(KilledProcess, ARendererKilledAtTheSameMomentDoesNotHoldTheClosingUp) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all("renderer");
    page.close();
    EXPECT_TRUE(wait_for([] { return processes_below("renderer").empty(); }))
        << PrintToString(processes_below("renderer"));
}

// In its first moments the runtime replaces it by itself, and the page comes all the same; later
// the loss ends the page.
void kill_until_noticed(shown_page& page) {
    kill_all("renderer");
    ASSERT_TRUE(wait_for([&] {
        const bool has_come = page.frames.count() > 0 && page.frames.centre() == k_blue;
        if (has_come) {
            for (const process& one : processes_below("renderer")) kill(one.id, SIGKILL);
        }
        return !page->IsLoading();
    })) << PrintToString(processes_below("renderer"));
}

TEST_F(KilledProcess, ARendererKilledAsSoonAsItIsThereIsReplaced) {
    shown_page page({.url = m_peer.url("/half"), .report_lost_page = true});
    ASSERT_TRUE(wait_for([] { return !processes_below("renderer").empty(); }));
    kill_until_noticed(page);
    expect_to_show(page, m_peer.html(k_green_page));
}

// Before the page has come, the runtime often goes on saying that it is loading.
TEST_F(KilledProcess, ARendererKilledBeforeItsPageCameIsReplacedByTheNextPage) {
    shown_page page({.url = m_peer.url("/half"), .report_lost_page = true});
    ASSERT_TRUE(wait_for([&] { return page->IsLoading() && page.frames.count() > 0; }));
    kill_until_noticed(page);
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(KilledProcess, ARendererKilledInTheMiddleOfAPageIsReplacedByTheNextPage) {
    shown_page page({.url = m_peer.url("/half"), .report_lost_page = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    kill_all("renderer");
    ASSERT_TRUE(wait_for([&] { return !page->IsLoading(); }));
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(KilledProcess, APageOnItsWayComesThoughTheOneBeforeItIsLost) {
    const std::string blue = m_peer.html("<body style='margin:0;background:#00f'>");
    shown_page page({.url = blue, .report_lost_page = true});
    ASSERT_TRUE(page.wait_until_loaded());
    kill_all("renderer");
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(KilledProcess, APageThatAnswersLateIsNotLostWithTheOneBeforeIt) {
    shown_page page(
        {.url = m_peer.html("<body style='margin:0;background:#00f'>"), .report_lost_page = true});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(m_peer.url("/never").c_str());
    const auto asked = [&] {
        return std::ranges::count(page.events.requests, m_peer.url("/never"));
    };
    ASSERT_TRUE(wait_for([&] { return asked() == 1; }));
    kill_all("renderer");
    EXPECT_TRUE(wait_for([&] { return asked() == 2; }));
    EXPECT_TRUE(page->IsLoading());
}

TEST_F(KilledProcess, APageThatHasBegunIsLostWithItsProcess) {
    shown_page page({.url = m_peer.html(k_green_page), .report_lost_page = true});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl(m_peer.url("/half").c_str());
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    kill_all("renderer");
    ASSERT_TRUE(wait_for([&] { return !page->IsLoading(); }));
    run_loop_for(300);
    EXPECT_FALSE(page->IsLoading());
    EXPECT_EQ(std::ranges::count(page.events.requests, m_peer.url("/half")), 1);
}

TEST_F(KilledProcess, ALostPageIsToldAndTheNextOneShownIfTheHostAskedForIt) {
    const std::string url = m_peer.html("<body style='margin:0;background:#00f'>");
    shown_page page({.url = url, .report_lost_page = true});
    ASSERT_TRUE(page.wait_until_loaded());
    kill_all("renderer");
    EXPECT_TRUE(wait_for([&] { return page.events.has_failed(url); }));
    expect_to_show(page, m_peer.html(k_green_page));
}

TEST_F(KilledProcess, OtherDisplaysGoOnWhenTheRendererOfOneIsKilled) {
    shown_page victim({.url = m_peer.html("<body style='background:#f00'>")});
    ASSERT_TRUE(victim.wait_until_loaded());
    const auto before = processes_below("renderer");
    shown_page other({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return other.frames.count() > 5; }));
    for (const process& one : before) kill(one.id, SIGKILL);
    run_loop_for(1000);
    const long frames = other.frames.count();
    run_loop_for(1000);
    // The second may have got the first one's spare, and is loaded again then.
    if (other.frames.count() == frames) other->LoadUrl(animated_url().c_str());
    EXPECT_TRUE(wait_for([&] { return other.frames.count() > frames + 5; }));
}

class KilledHelper : public HostilePage, public testing::WithParamInterface<const char*> {};

TEST_P(KilledHelper, IsReplacedByTheRuntime) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    kill_all(GetParam());
    run_loop_for(500);
    expect_to_show(page, m_peer.html(k_green_page));
}
INSTANTIATE_TEST_SUITE_P(All, KilledHelper, testing::Values("gpu-process", "utility"),
                         [](const auto& one) {
                             return std::string(one.param) == "utility" ? "Utility" : "Gpu";
                         });

}  // namespace
}  // namespace pennywort::runtime_test
