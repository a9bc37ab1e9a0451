// last_picture_test.cpp - what goes to the renderer when a page fails or is lost: with the setting
// for it the last good picture stays, and nothing else is seen until the next page has painted.
#include <signal.h>

#include <algorithm>

#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class LastPicture : public HostilePage {
protected:
    // Everything that goes to the renderer from now on, one colour of its middle after the other.
    void watch(shown_page& page) {
        m_seen.clear();
        page.frames.on_frame = [this, &page] {
            const pixel centre = page.frames.centre();
            if (m_seen.empty() || !(m_seen.back() == centre)) m_seen.push_back(centre);
        };
    }
    static cWebDisplayPagePhase phase_of(const shown_page& page) {
        cWebDisplayPageStatus status;
        page->GetPageStatus(status);
        return status.phase;
    }
    void fail_to_load(shown_page& page) {
        page->LoadUrl(m_peer.url("/reset").c_str());
        ASSERT_TRUE(wait_for([&] { return page.events.has_failed(m_peer.url("/reset")); }));
        run_loop_for(500);
    }
    void lose(shown_page& page) {
        for (const process& one : processes_below("renderer")) kill(one.id, SIGKILL);
        ASSERT_TRUE(wait_for([&] { return phase_of(page) == cWebDisplayPagePhase::Lost; }));
        run_loop_for(300);
    }
    std::string text_page(const char* css) {
        return m_peer.html(std::string("<body style='margin:0;background:") + css + "'><b>x");
    }

    std::vector<pixel> m_seen;
};

TEST_F(LastPicture, StaysWhenAPageFailsAndTheNextOneFollowsWithoutAnotherFrame) {
    shown_page page({.url = text_page("#00f"), .keep_last_picture = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    watch(page);
    fail_to_load(page);
    EXPECT_TRUE(m_seen.empty()) << PrintToString(m_seen);
    EXPECT_EQ(phase_of(page), cWebDisplayPagePhase::Failed);
    EXPECT_TRUE(wait_for([&] { return !page->IsLoading(); }));
    page->LoadUrl(text_page("#f00").c_str());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    run_loop_for(300);
    EXPECT_EQ(m_seen, std::vector<pixel>{k_red}) << PrintToString(m_seen);
}

// The server's page is there, and the browser shows it; the host does not.
TEST_F(LastPicture, StaysWhenAServerHasAnErrorPageOnly) {
    shown_page page({.url = text_page("#00f"),
                     .keep_last_picture = true,
                     .tell_every_load = true,
                     .fail_on_error_status = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    watch(page);
    for (const char* path : {"/status/404", "/status/503"}) {
        const std::string url = m_peer.url(path);
        page->LoadUrl(url.c_str());
        ASSERT_TRUE(wait_for([&] { return page.events.has_failed(url); }));
        EXPECT_EQ(phase_of(page), cWebDisplayPagePhase::Failed);
        run_loop_for(500);
    }
    EXPECT_TRUE(m_seen.empty()) << PrintToString(m_seen);
    page.run("location.href = " + PrintToString(m_peer.url("/status/200")));
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(m_peer.url("/status/200")); }));
    EXPECT_TRUE(wait_for([&] { return !m_seen.empty(); }));
}

TEST_F(LastPicture, StaysWhenThePageIsLostAndTheNextOneFollowsWithoutAnotherFrame) {
    shown_page page({.url = text_page("#00f"), .keep_last_picture = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    watch(page);
    lose(page);
    page->LoadUrl(text_page("#f00").c_str());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    run_loop_for(300);
    EXPECT_EQ(m_seen, std::vector<pixel>{k_red}) << PrintToString(m_seen);
}

// On a busy machine each page is empty at first; this one is so for longer than the runtime waits.
TEST_F(LastPicture, StaysUntilAPageThatIsEmptyAtFirstHasPainted) {
    shown_page page({.url = text_page("#00f"), .keep_last_picture = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    watch(page);
    page->LoadUrl(m_peer
                      .html("<body style='margin:0;background:#000'><script>"
                            "setTimeout(() => document.body.style.background = '#f00', 600)"
                            "</script>")
                      .c_str());
    EXPECT_TRUE(page.wait_for_colour(k_red));
    m_seen.erase(std::remove(m_seen.begin(), m_seen.end(), k_blue), m_seen.end());
    EXPECT_EQ(m_seen, std::vector<pixel>{k_red}) << PrintToString(m_seen);
}

// It cannot be told from one that has not painted yet until it says so itself.
TEST_F(LastPicture, GivesWayToAPageThatIsAllBackground) {
    shown_page page({.url = text_page("#00f"), .keep_last_picture = true});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    fail_to_load(page);
    watch(page);
    page->LoadUrl(m_peer.html("<body style='margin:0;background:#000'>").c_str());
    EXPECT_TRUE(page.wait_for_colour(k_black));
    EXPECT_EQ(m_seen, std::vector<pixel>{k_black}) << PrintToString(m_seen);
}

TEST_F(LastPicture, IsTheBackgroundWhereTheFirstPageFails) {
    for (const bool is_transparent : {false, true}) {
        shown_page page({.url = m_peer.url("/reset"),
                         .transparent = is_transparent,
                         .keep_last_picture = true});
        watch(page);
        const std::string& failed = m_peer.url("/reset");
        ASSERT_TRUE(wait_for([&] { return page.events.has_failed(failed); }));
        run_loop_for(500);
        const pixel background = is_transparent ? k_clear : k_black;
        EXPECT_EQ(m_seen, std::vector<pixel>{background}) << PrintToString(m_seen);
    }
}

TEST_F(LastPicture, GivesWayToTheBrowsersOwnPageUnlessTheHostAsked) {
    shown_page page({.url = text_page("#00f")});
    ASSERT_TRUE(page.wait_for_colour(k_blue));
    watch(page);
    fail_to_load(page);
    EXPECT_TRUE(wait_for([&] { return !m_seen.empty(); }));
}

}  // namespace
}  // namespace pennywort::runtime_test
