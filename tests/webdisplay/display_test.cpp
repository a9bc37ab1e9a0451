// display_test.cpp - opening, sizing, hiding and repainting a display that is shown by the runtime.
#include <atomic>
#include <memory>
#include <thread>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using DisplayTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

// --- before there is a browser

TEST_F(DisplayTest, EveryOperationIsHarmlessWithoutARuntime) {
    screen s(page("http://a/"));
    int results = 0;
    EXPECT_FALSE(s->Open());
    s->Repaint();
    s->SetSize(10, 20);
    s->LoadUrl("http://b/");
    s->LoadNextUrl();
    EXPECT_FALSE(s->IsLoading());
    EXPECT_EQ(s->ExecuteJavascript("x", 0, [&](const std::string&) { ++results; }), -1);
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
    s->DeleteCookies("http://a/");
    s->SetVisibility(false);
    EXPECT_FALSE(s->NextFrame());
    LRESULT result = 0;
    EXPECT_FALSE(s.engine().HandleWindowMessage(nullptr, WM_SIZE, 0, 0, result));
    EXPECT_FALSE(cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(nullptr));
    s->Close();
    s->Close();
    long width = 0, height = 0;
    s->GetSize(width, height);
    EXPECT_EQ(width, 10);
    EXPECT_EQ(results, 0);
    EXPECT_EQ(fake().initialisations(), 0);
}

TEST_F(DisplayTest, ADisplayMadeBeforeTheRuntimeOpensAfterIt) {
    screen s(page("http://a/"));
    start();
    show(s);
    EXPECT_TRUE(s.seen.heard("loaded http://a/"));
}

TEST_F(DisplayTest, ACallbackWithoutABrowserWaitsForItsTimeOut) {
    start();
    screen s(page("http://a/"));
    auto held = std::make_shared<int>(0);
    EXPECT_EQ(s->ExecuteJavascript("x", 0, [held](const std::string&) { FAIL(); }), -1);
    EXPECT_EQ(held.use_count(), 2);
    s.release();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(DisplayTest, OpensWithoutWaiting) {
    start();
    screen s(page("http://a/"));
    EXPECT_TRUE(s->Open());
    EXPECT_FALSE(s->IsLoading());
    EXPECT_EQ(fake().browser_count(), 0);
}

TEST_F(DisplayTest, OpenedTwiceItHasOneBrowser) {
    start();
    screen s(page("http://a/"));
    EXPECT_TRUE(s->Open());
    EXPECT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://a/"); }));
    EXPECT_TRUE(s->Open());
    settle();
    EXPECT_EQ(fake().browser_count(), 1);
}

TEST_F(DisplayTest, ARuntimeThatMakesNoBrowserLeavesTheDisplayUsable) {
    script().fail_create_at = 1;
    start();
    screen s(page("http://a/"));
    EXPECT_TRUE(s->Open());
    settle();
    EXPECT_FALSE(s->IsLoading());
    EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
    s->Close();
    // And it may be tried again.
    show(s);
    EXPECT_TRUE(s.seen.heard("loaded http://a/"));
}

// --- what is asked of the runtime

TEST_F(DisplayTest, AsksForAnOffScreenBrowserOfItsSize) {
    start();
    screen s(page("http://a/", 1920, 1080), 50);
    show(s);
    const fake_cef_browser b = fake().browser(1);
    EXPECT_EQ(b.start_url, "http://a/");
    EXPECT_TRUE(b.windowless);
    EXPECT_EQ(b.parent_window, 0u);
    EXPECT_EQ(b.width, 1920);
    EXPECT_EQ(b.height, 1080);
    EXPECT_EQ(b.frame_rate, 50);
    EXPECT_EQ(b.background_color, 0xFF000000u);
    EXPECT_FALSE(b.external_begin_frame);
    EXPECT_EQ(b.view_width, 1920);
    EXPECT_EQ(b.view_height, 1080);
}

TEST_F(DisplayTest, ATransparentPageHasNoBackground) {
    zRecord settings = page("http://a/");
    settings.SetBool("web_transparent", true);
    start();
    screen s(settings);
    show(s);
    EXPECT_EQ(fake().browser(1).background_color, 0u);
}

TEST_F(DisplayTest, WithoutAUrlItStartsEmptyAndLoadsWhatComes) {
    start();
    screen s(page(""));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([] { return fake().browser_count() == 1; }));
    settle();
    EXPECT_EQ(fake().browser(1).start_url, "");
    EXPECT_EQ(fake().browser(1).loads, strings{});
    s->LoadUrl("http://a/");
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://a/"); }));
}

struct rate_case {
    const char* name;
    double asked;
    int want;
};
void PrintTo(const rate_case& c, std::ostream* out) { *out << c.name; }
class DisplayRateTest : public DisplayTest, public testing::WithParamInterface<rate_case> {};

TEST_P(DisplayRateTest, TheEngineGetsTheWholePartOfTheFrameRate) {
    start();
    screen s(page("http://a/"), GetParam().asked);
    show(s);
    EXPECT_EQ(fake().browser(1).frame_rate, GetParam().want);
    EXPECT_FALSE(s.seen.frames.empty());
}
INSTANTIATE_TEST_SUITE_P(All, DisplayRateTest,
                         testing::Values(rate_case{"Zero", 0, 0}, rate_case{"One", 1, 1},
                                         rate_case{"Ntsc", 59.94, 59}, rate_case{"Fast", 240, 240},
                                         rate_case{"Fraction", 0.99, 0}),
                         [](const auto& test) { return std::string(test.param.name); });

struct size_case {
    const char* name;
    int width, height;         // of the settings
    int created_w, created_h;  // what the browser is created with
    int view_w, view_h;        // what its view becomes
};
void PrintTo(const size_case& c, std::ostream* out) { *out << c.name; }
class DisplaySizeTest : public DisplayTest, public testing::WithParamInterface<size_case> {};

TEST_P(DisplaySizeTest, TheBrowserIsNeverSmallerThanItCanBe) {
    const size_case& c = GetParam();
    script().paint_after_load = false;
    start();
    screen s(page("http://a/", c.width, c.height));
    show(s);
    const fake_cef_browser b = fake().browser(1);
    EXPECT_EQ(b.width, c.created_w);
    EXPECT_EQ(b.height, c.created_h);
    EXPECT_EQ(b.view_width, c.view_w);
    EXPECT_EQ(b.view_height, c.view_h);
}
INSTANTIATE_TEST_SUITE_P(
    All, DisplaySizeTest,
    testing::Values(size_case{"Zero", 0, 0, 5, 5, 1, 1}, size_case{"One", 1, 1, 5, 5, 1, 1},
                    size_case{"Four", 4, 4, 5, 5, 4, 4}, size_case{"Five", 5, 5, 5, 5, 5, 5},
                    size_case{"Negative", -16, -9, 5, 5, 1, 1},
                    size_case{"WideAndFlat", 300, 2, 300, 5, 300, 2},
                    size_case{"Largest", 16384, 16384, 16384, 16384, 16384, 16384}),
    [](const auto& test) { return std::string(test.param.name); });

// --- size

TEST_F(DisplayTest, ANewSizeIsTheSizeOfTheFramesThatFollow) {
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    s.seen.frames.clear();
    s->SetSize(640, 360);
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_EQ(s.seen.frames.back().width, 640);
    EXPECT_EQ(s.seen.frames.back().height, 360);
    long width = 0, height = 0;
    s->GetSize(width, height);
    EXPECT_EQ(width, 640);
    EXPECT_EQ(height, 360);
}

TEST_F(DisplayTest, ASizeSetBeforeTheBrowserIsThereCounts) {
    script().create_after_works = 3;
    start();
    screen s(page("http://a/", 320, 180));
    ASSERT_TRUE(s->Open());
    loop_works(1);
    s->SetSize(100, 50);
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_EQ(s.seen.frames.back().width, 100);
    EXPECT_EQ(s.seen.frames.back().height, 50);
    EXPECT_GE(fake().browser(1).resizes, 1);
}

TEST_F(DisplayTest, SizesThatNobodyCanShowDoNotReachTheRuntime) {
    script().paint_after_load = false;
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    for (const long side : {0L, -1L, -2147483647L - 1}) {
        s->SetSize(side, side);
        loop_works(1);
        EXPECT_EQ(fake().browser(1).view_width, 1) << side;
        EXPECT_EQ(fake().browser(1).view_height, 1) << side;
    }
    s->SetSize(100, 100);
    loop_works(1);
    EXPECT_EQ(fake().browser(1).view_width, 100);
}

TEST_F(DisplayTest, ResizingFromManyThreadsWhileFramesArrive) {
    script().animate = true;
    start();
    screen s(page("http://a/", 32, 32), 240);
    show(s);
    std::atomic<bool> done{false};
    std::vector<std::thread> hosts;
    for (int i = 0; i < 2; ++i) {
        hosts.emplace_back([&] {
            for (int n = 0; n < 300; ++n) s->SetSize(32 + n % 7, 32 + n % 5);
            done = true;
        });
    }
    ASSERT_TRUE(loop_until([&] { return done.load(); }));
    for (auto& host : hosts) host.join();
    s->SetSize(99, 77);
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.back().width == 99; }));
}

// --- visibility and repaint

TEST_F(DisplayTest, AHiddenDisplayPaintsNothing) {
    script().animate = true;
    start();
    screen s(page("http://a/"));
    show(s);
    s->SetVisibility(false);
    loop_works(2);
    s.seen.frames.clear();
    s->Repaint();
    loop_works(5);
    EXPECT_TRUE(s.seen.frames.empty());
    s->SetVisibility(true);
    EXPECT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_EQ(fake().browser(1).hides, (std::vector<bool>{true, false}));
}

TEST_F(DisplayTest, RepaintAsksForTheWholeView) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.frames.clear();
    s->Repaint();
    EXPECT_EQ(s.seen.frames.size(), 1u) << "the runtime paints within the call";
    EXPECT_EQ(fake().browser(1).invalidates, std::vector<int>{0});
    std::thread([&] { s->Repaint(); }).join();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() == 2; }));
}

TEST_F(DisplayTest, RepaintInAFrameIsNoEndlessCircle) {
    start();
    screen s(page("http://a/"));
    show(s);
    loop_works(3);
    s.seen.frames.clear();
    int left = 5;
    int depth = 0;
    s.seen.on_frame = [&] {
        EXPECT_EQ(++depth, 1) << "painted within the renderer's own call";
        if (left-- > 0) s->Repaint();
        --depth;
    };
    s->Repaint();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() == 6; }));
    loop_works(3);
    EXPECT_EQ(s.seen.frames.size(), 6u);
}

// --- cookies

TEST_F(DisplayTest, CookiesOfAUrlAreDeletedOnTheUiThread) {
    start();
    screen s(page("http://a/"));
    std::thread([&] { s->DeleteCookies("http://a/x"); }).join();
    EXPECT_TRUE(fake().cookie_deletions().empty());
    ASSERT_TRUE(loop_until([] { return !fake().cookie_deletions().empty(); }));
    const fake_cef_cookies deleted = fake().cookie_deletions()[0];
    EXPECT_EQ(deleted.url, "http://a/x");
    EXPECT_EQ(deleted.name, "");
    EXPECT_FALSE(deleted.has_callback);
    EXPECT_TRUE(deleted.on_ui_thread);
}

TEST_F(DisplayTest, ANullUrlOfCookiesDoesNoHarm) {
    start();
    screen s(page("http://a/"));
    s->DeleteCookies(nullptr);
    loop_works(2);
}

// --- many

TEST_F(DisplayTest, TwoDisplaysDoNotMixTheirPagesUp) {
    start();
    screen a(page("http://a/", 100, 10)), b(page("http://b/", 200, 20));
    show(a);
    show(b);
    EXPECT_EQ(a.seen.events, strings{"loaded http://a/"});
    EXPECT_EQ(b.seen.events, strings{"loaded http://b/"});
    for (const auto& frame : a.seen.frames) EXPECT_EQ(frame.width, 100);
    for (const auto& frame : b.seen.frames) EXPECT_EQ(frame.width, 200);
}

}  // namespace
