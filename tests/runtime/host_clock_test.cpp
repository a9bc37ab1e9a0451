// host_clock_test.cpp - displays that paint on the host's word only.
#include <atomic>
#include <thread>

#include "harness.h"

namespace pennywort::runtime_test {
namespace {

class HostClock : public RuntimeTest {
protected:
    static page_settings settings(const std::string& url) {
        return {.url = url, .host_clock = true};
    }

    // Ticks until a picture comes; the page needs some before it can paint at all.
    static bool tick_until_a_picture(shown_page& page) {
        const long before = page.frames.count();
        return wait_for([&] {
            if (page.frames.count() > before) return true;
            page->NextFrame();
            run_loop_for(15);
            return page.frames.count() > before;
        });
    }

    // Ticks until the page is loaded and has stopped changing.
    static bool tick_until_at_rest(shown_page& page, const pixel& colour) {
        int at_rest = 0;
        return wait_for([&] {
            const long before = page.frames.count();
            page->NextFrame();
            run_loop_for(20);
            at_rest = page.frames.count() == before && !page.events.loaded.empty() &&
                              page.frames.centre() == colour
                          ? at_rest + 1
                          : 0;
            return at_rest == 25;
        });
    }
};

TEST_F(HostClock, WithoutATickThereIsNoPicture) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    EXPECT_TRUE(page.comes_to_rest());
}

TEST_F(HostClock, ATickWithoutAPageOrWithoutTheSettingIsRefused) {
    cWebDisplayCEFBrowser* closed = make_display(settings(animated_url()));
    EXPECT_FALSE(closed->NextFrame());
    EXPECT_TRUE(closed->Open());
    ASSERT_TRUE(wait_for([&] { return closed->NextFrame(); }));
    closed->Close();
    EXPECT_FALSE(closed->NextFrame());
    closed->Release();

    shown_page free_running({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return free_running.frames.count() > 0; }));
    EXPECT_FALSE(free_running->NextFrame());
    cWebDisplayFrameCounts counts;
    free_running->GetFrameCounts(counts);
    EXPECT_EQ(counts.ticks, 0u);
    EXPECT_EQ(counts.ticks_missed, 0u);
    EXPECT_EQ(counts.painted, static_cast<std::uint64_t>(free_running.frames.count()));
}

TEST_F(HostClock, ATickGivesAtMostOnePicture) {
    constexpr int k_ticks = 60;
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    ASSERT_TRUE(page.comes_to_rest());
    const long start = page.frames.count();
    for (int tick = 0; tick < k_ticks; ++tick) {
        ASSERT_TRUE(page->NextFrame());
        run_loop_for(30);
        // That of the tick before may be late.
        ASSERT_LE(page.frames.count() - start, tick + 1) << "tick " << tick;
    }
    EXPECT_LE(page.frames.count() - start, k_ticks);
    // A page that follows at all: each of its frames differs.
    EXPECT_GT(page.frames.count() - start, 0);
    cWebDisplayFrameCounts counts;
    page->GetFrameCounts(counts);
    EXPECT_GE(counts.ticks, static_cast<std::uint64_t>(k_ticks));
    EXPECT_LE(counts.painted, counts.ticks + 1);
}

TEST_F(HostClock, EachAwaitedTickIsOneStepOfThePage) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    ASSERT_TRUE(page.comes_to_rest());
    const auto step = [&] { return std::stol(page.ask("return step").value_or("-1000000")); };
    const long before = step();
    const long pictures = page.frames.count();
    for (int i = 0; i < 40; ++i) {
        const long shown = page.frames.count();
        ASSERT_TRUE(page->NextFrame());
        // A tick is lost where the page was still busy with the one before; then it takes another.
        ASSERT_TRUE(wait_for([&] {
            if (page.frames.count() > shown) return true;
            run_loop_for(50);
            return page.frames.count() > shown || (page->NextFrame(), false);
        })) << "picture "
            << i;
    }
    // A tick that was only late has brought one more.
    EXPECT_GE(page.frames.count() - pictures, 40);
    // In some processes a picture comes before the step of its own tick.
    EXPECT_TRUE(wait_for([&] { return step() - before >= 40; })) << step() - before;
}

TEST_F(HostClock, AStaticPageGivesNoPicturesHoweverOftenItTicks) {
    shown_page page(settings(colour_url("#00f")));
    ASSERT_TRUE(tick_until_at_rest(page, k_blue)) << page.frames.count();
    ASSERT_TRUE(page.comes_to_rest());
    const long before = page.frames.count();
    for (int tick = 0; tick < 50; ++tick) {
        page->NextFrame();
        run_loop_for(5);
    }
    EXPECT_EQ(page.frames.count(), before);
    page->Repaint();
    EXPECT_TRUE(wait_for([&] { return page.frames.count() == before + 1; }))
        << page.frames.count() - before;
}

TEST_F(HostClock, AChangeOfAStaticPageIsThePictureOfTheNextTick) {
    shown_page page(settings(colour_url("#00f")));
    ASSERT_TRUE(tick_until_at_rest(page, k_blue)) << page.frames.count();
    ASSERT_TRUE(page.comes_to_rest());
    const long before = page.frames.count();
    EXPECT_EQ(page.ask("document.body.style.background = '#0f0'; return 1"), "1");
    run_loop_for(200);
    EXPECT_EQ(page.frames.count(), before);
    ASSERT_TRUE(tick_until_a_picture(page));
    EXPECT_EQ(page.frames.centre(), k_green);
}

TEST_F(HostClock, ANewSizeComesWithTheTicks) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    page->SetSize(200, 100);
    EXPECT_TRUE(wait_for([&] {
        page->NextFrame();
        run_loop_for(15);
        return page.frames.size() == std::pair(200L, 100L);
    })) << page.frames.width()
        << "x" << page.frames.height();
}

TEST_F(HostClock, TicksMayComeFromAnyThread) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    std::atomic<bool> done{false};
    std::atomic<int> ticks{0};
    cWebDisplayCEFBrowser* display = page.get();
    std::thread clock([&] {
        while (!done) {
            if (display->NextFrame()) ++ticks;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    EXPECT_TRUE(wait_for([&] { return page.frames.count() >= 30; })) << page.frames.count();
    // The display closes under the clock.
    page.frames.on_frame = {};
    display->AddRef();
    page.close();
    done = true;
    clock.join();
    EXPECT_FALSE(display->NextFrame());
    display->Release();
    EXPECT_LE(page.frames.count(), ticks + 1);
    EXPECT_TRUE(page.frames.on_one_thread());
}

TEST_F(HostClock, TicksThatComeTooFastAreDroppedAndCounted) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    run_loop_for(300);
    cWebDisplayFrameCounts before;
    page->GetFrameCounts(before);
    // Ten at a time, which no page can follow.
    for (int burst = 0; burst < 60; ++burst) {
        for (int i = 0; i < 10; ++i) ASSERT_TRUE(page->NextFrame());
        run_loop_for(20);
    }
    cWebDisplayFrameCounts after;
    EXPECT_TRUE(wait_for([&] {
        page->GetFrameCounts(after);
        return after.ticks_missed > before.ticks_missed;
    }));
    EXPECT_EQ(after.ticks - before.ticks, 600u);
    EXPECT_LT(after.painted - before.painted, 300u);
    EXPECT_LE(after.ticks_missed, after.ticks);
}

TEST_F(HostClock, TwoDisplaysHaveClocksOfTheirOwn) {
    shown_page ticking(settings(animated_url()));
    shown_page waiting(settings(animated_url()));
    ASSERT_TRUE(ticking.wait_until_loaded());
    ASSERT_TRUE(waiting.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(ticking));
    ASSERT_TRUE(tick_until_a_picture(waiting));
    ASSERT_TRUE(waiting.comes_to_rest());
    const long still = waiting.frames.count();
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(tick_until_a_picture(ticking));
    EXPECT_EQ(waiting.frames.count(), still);
}

// The runtime calls those that wait for a tick by the order of their addresses. In some processes
// its display comes before the page, and each picture shows the step of the tick before.
class ExactTicks : public HostClock {
protected:
    void prepare() override { cWebDisplayCEFBrowserManager::EnableExactTicks(); }
};

TEST_F(ExactTicks, APictureShowsTheStepOfItsOwnTick) {
    shown_page page(settings(animated_url()));
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(tick_until_a_picture(page));
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(tick_until_a_picture(page));
        // The picture of the last tick may be late; that of the tick before would stay.
        long step = 0;
        EXPECT_TRUE(wait_for([&] {
            step = std::stol(page.ask("return step").value_or("-1000000"));
            const pixel shown = page.frames.centre();
            return step == shown.red + 256L * shown.green;
        })) << "step "
            << step << " of picture " << i;
    }
}

}  // namespace
}  // namespace pennywort::runtime_test
