// frames_test.cpp - what the renderer of an off-screen page gets.
#include <cmath>
#include <limits>
#include <ostream>

#include "harness.h"

namespace pennywort::runtime_test {
namespace {

class Frames : public RuntimeTest {};

// --- sizes that no page should have

struct size_case {
    const char* name;
    int width;
    int height;
    std::pair<long, long> painted;  // what the frames are
};
void PrintTo(const size_case& c, std::ostream* out) { *out << c.name; }

// A page is at least one pixel and at most 16384 a side; what lies beyond is cut.
constexpr size_case k_settings_cases[] = {
    {"Nothing", 0, 0, {1, 1}},
    {"Negative", -5, -700, {1, 1}},
    {"One", 1, 1, {1, 1}},
    {"Four", 4, 4, {4, 4}},
    {"WideAsPossible", 16384, 4, {16384, 4}},
    {"HighAsPossible", 4, 16384, {4, 16384}},
    {"TooWide", 100000, 4, {16384, 4}},
    {"LargestNumbers", 2147483647, -2147483647, {16384, 1}},
    {"Odd", 333, 77, {333, 77}},
};

class SizeFromSettings : public RuntimeTest, public testing::WithParamInterface<size_case> {};

TEST_P(SizeFromSettings, IsPaintedWithinTheLimits) {
    const size_case& c = GetParam();
    shown_page page({.url = animated_url(), .width = c.width, .height = c.height});
    EXPECT_TRUE(wait_for([&] { return page.frames.size() == c.painted; }))
        << page.frames.count() << " frames, the last of " << page.frames.width() << "x"
        << page.frames.height();
}
INSTANTIATE_TEST_SUITE_P(All, SizeFromSettings, testing::ValuesIn(k_settings_cases),
                         case_name<size_case>);

class SizeWhileRunning : public RuntimeTest, public testing::WithParamInterface<size_case> {};

TEST_P(SizeWhileRunning, IsPaintedWithinTheLimits) {
    const size_case& c = GetParam();
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 0; }));
    page->SetSize(c.width, c.height);
    EXPECT_TRUE(wait_for([&] { return page.frames.size() == c.painted; }))
        << page.frames.count() << " frames, the last of " << page.frames.width() << "x"
        << page.frames.height();
}
INSTANTIATE_TEST_SUITE_P(All, SizeWhileRunning, testing::ValuesIn(k_settings_cases),
                         case_name<size_case>);

TEST_F(Frames, TheLargestPageNeitherCrashesNorStaysThatLarge) {
    shown_page page({.url = colour_url("lime"), .width = 16384, .height = 16384});
    run_loop_for(1000);
    page->SetSize(40, 30);
    EXPECT_TRUE(wait_for([&] { return page.frames.size() == std::pair(40L, 30L); }))
        << page.frames.count() << " frames, the last of " << page.frames.width() << "x"
        << page.frames.height();
}

TEST_F(Frames, SizesThatFollowEachOtherEndAtTheLastOne) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 0; }));
    for (int i = 1; i <= 50; ++i) page->SetSize(10 * i, 5 * i);
    EXPECT_TRUE(wait_for([&] { return page.frames.size() == std::pair(500L, 250L); }))
        << page.frames.width() << "x" << page.frames.height();
    long width = 0;
    long height = 0;
    page->GetSize(width, height);
    EXPECT_EQ(std::pair(width, height), std::pair(500L, 250L));
}

TEST_F(Frames, ThePageSeesTheNewSize) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(page.wait_until_loaded());
    page->SetSize(320, 180);
    ASSERT_TRUE(wait_for([&] { return page.frames.size() == std::pair(320L, 180L); }));
    EXPECT_EQ(page.ask("return innerWidth + 'x' + innerHeight"), "320x180");
}

// --- frame rates that no page should have

struct rate_case {
    const char* name;
    double rate;
};
void PrintTo(const rate_case& c, std::ostream* out) { *out << c.name; }

class FrameRate : public RuntimeTest, public testing::WithParamInterface<rate_case> {};

TEST_P(FrameRate, FramesCome) {
    shown_page page({.url = animated_url(), .rate = GetParam().rate});
    EXPECT_TRUE(wait_for([&] { return page.frames.count() >= 5; })) << page.frames.count();
}
INSTANTIATE_TEST_SUITE_P(
    All, FrameRate,
    testing::Values(rate_case{"Zero", 0}, rate_case{"Negative", -25},
                    rate_case{"NotANumber", std::nan("")},
                    rate_case{"Infinite", std::numeric_limits<double>::infinity()},
                    rate_case{"One", 1}, rate_case{"Broadcast", 59.94}, rate_case{"TooFast", 240}),
    case_name<rate_case>);

// --- colours

struct colour_case {
    const char* name;
    const char* css;
    bool transparent;
    pixel painted;
};
void PrintTo(const colour_case& c, std::ostream* out) { *out << c.name; }

// Colour is premultiplied by alpha; behind an opaque page is black.
const colour_case k_colours[] = {
    {"RedOpaque", "#f00", false, k_red},
    {"GreenOpaque", "#0f0", false, k_green},
    {"BlueOpaque", "#00f", false, k_blue},
    {"MixedOpaque", "#123456", false, {0x56, 0x34, 0x12, 255}},
    {"HalfRedOpaque", "rgba(255,0,0,0.5)", false, {0, 0, 128, 255}},
    {"NothingOpaque", "transparent", false, k_black},
    {"RedTransparent", "#f00", true, k_red},
    {"GreenTransparent", "#0f0", true, k_green},
    {"BlueTransparent", "#00f", true, k_blue},
    {"HalfRedTransparent", "rgba(255,0,0,0.5)", true, {0, 0, 128, 128}},
    {"HalfMixedTransparent", "rgba(255,128,0,0.5)", true, {0, 64, 128, 128}},
    {"FaintWhiteTransparent", "rgba(255,255,255,0.2)", true, {51, 51, 51, 51}},
    {"NothingTransparent", "transparent", true, k_clear},
};

class Colour : public RuntimeTest, public testing::WithParamInterface<colour_case> {};

TEST_P(Colour, ArrivesInThisOrderAndPremultiplied) {
    const colour_case& c = GetParam();
    shown_page page({.url = colour_url(c.css), .transparent = c.transparent});
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(page.wait_for_colour(c.painted));
    EXPECT_EQ(page.frames.size(), std::pair(64L, 48L));
    EXPECT_EQ(page.frames.at(0, 0), c.painted);
    EXPECT_EQ(page.frames.at(63, 47), c.painted);
}
INSTANTIATE_TEST_SUITE_P(All, Colour, testing::ValuesIn(k_colours), case_name<colour_case>);

TEST_F(Frames, RowsRunFromTopToBottomAndPixelsFromLeftToRight) {
    shown_page page({.url = page_url("<!doctype html><style>body{margin:0;background:#fff}"
                                     "div{position:absolute;width:8px;height:8px}</style>"
                                     "<div style='left:0;top:0;background:#f00'></div>"
                                     "<div style='right:0;top:0;background:#0f0'></div>"
                                     "<div style='left:0;bottom:0;background:#00f'></div>"
                                     "<div style='right:0;bottom:0;background:#000'></div>")});
    ASSERT_TRUE(page.wait_for_colour({255, 255, 255, 255}));
    EXPECT_EQ(page.frames.at(4, 4), k_red);
    EXPECT_EQ(page.frames.at(59, 4), k_green);
    EXPECT_EQ(page.frames.at(4, 43), k_blue);
    EXPECT_EQ(page.frames.at(59, 43), k_black);
    EXPECT_EQ(page.frames.at(7, 7), k_red);
    EXPECT_EQ(page.frames.at(8, 8), (pixel{255, 255, 255, 255}));
}

TEST_F(Frames, AlphaEdgesHaveNoDarkFringe) {
    shown_page page({.url = page_url("<!doctype html><body style='margin:0'><div style='"
                                     "margin:8px;width:32px;height:32px;border-radius:16px;"
                                     "background:#fff'></div>"),
                     .transparent = true});
    ASSERT_TRUE(wait_for([&] {
        return page.frames.count() > 0 && page.frames.at(24, 24) == pixel{255, 255, 255, 255};
    }));
    int edges = 0;
    for (long y = 0; y < 48; ++y) {
        for (long x = 0; x < 64; ++x) {
            const pixel p = page.frames.at(x, y);
            if (p.alpha > 0 && p.alpha < 255) ++edges;
            // White under any alpha is that alpha in each colour.
            ASSERT_EQ(p, (pixel{p.alpha, p.alpha, p.alpha, p.alpha})) << "at " << x << ", " << y;
        }
    }
    EXPECT_GT(edges, 10);
}

TEST_F(Frames, TextIsNotBlank) {
    shown_page page({.url = page_url("<!doctype html><body style='margin:0;background:#fff;"
                                     "font:40px sans-serif'>Score 3:2"),
                     .width = 320,
                     .height = 60});
    ASSERT_TRUE(page.wait_until_loaded());
    // Both the letters and the grey levels of their edges.
    EXPECT_TRUE(wait_for([&] { return page.frames.colours() > 8; })) << page.frames.colours();
}

// --- visibility and repainting

TEST_F(Frames, AHiddenDisplayPaintsNothingAndAShownOneResumes) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    page->SetVisibility(false);
    EXPECT_TRUE(page.comes_to_rest());
    const long hidden = page.frames.count();
    page->SetVisibility(true);
    EXPECT_TRUE(wait_for([&] { return page.frames.count() > hidden + 5; })) << page.frames.count();
}

TEST_F(Frames, RepaintGivesAFrameOfAStaticPage) {
    shown_page page({.url = colour_url("#0f0")});
    ASSERT_TRUE(page.wait_until_loaded());
    ASSERT_TRUE(page.wait_for_colour(k_green));
    run_loop_for(500);
    for (int i = 0; i < 3; ++i) {
        const long before = page.frames.count();
        page->Repaint();
        ASSERT_TRUE(wait_for([&] { return page.frames.count() > before; })) << "repaint " << i;
        EXPECT_EQ(page.frames.centre(), k_green);
    }
}

TEST_F(Frames, ARendererThatIsTakenAwayWhileFramesArriveGetsNoMore) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    page->SetVideoRenderer(nullptr);
    const long last = page.frames.count();
    kept_frames others;
    run_loop_for(300);
    page->SetVideoRenderer(&others);
    EXPECT_TRUE(wait_for([&] { return others.count() > 5; })) << others.count();
    page->SetVideoRenderer(nullptr);
    EXPECT_EQ(page.frames.count(), last);
}

TEST_F(Frames, ARendererMayRemoveItselfInAFrame) {
    shown_page page({.url = animated_url()});
    cWebDisplayCEFBrowser* display = page.get();
    page.frames.on_frame = [&] {
        if (page.frames.count() == 3) display->SetVideoRenderer(nullptr);
    };
    cWebDisplayFrameCounts counts;
    EXPECT_TRUE(wait_for([&] {
        display->GetFrameCounts(counts);
        return counts.painted > 6;
    })) << counts.painted;
    EXPECT_EQ(page.frames.count(), 3);
}

TEST_F(Frames, ArriveOnTheDisplayThread) {
    shown_page page({.url = animated_url()});
    ASSERT_TRUE(wait_for([&] { return page.frames.count() > 5; }));
    EXPECT_TRUE(page.frames.on_one_thread());
    EXPECT_EQ(page.frames.popup_count(), 0);
}

TEST_F(Frames, SeveralDisplaysKeepTheirPicturesApart) {
    shown_page red({.url = colour_url("#f00")});
    shown_page green({.url = colour_url("#0f0"), .width = 100, .height = 20});
    shown_page blue({.url = colour_url("#00f")});
    EXPECT_TRUE(red.wait_for_colour(k_red));
    EXPECT_TRUE(green.wait_for_colour(k_green));
    EXPECT_TRUE(blue.wait_for_colour(k_blue));
    EXPECT_EQ(green.frames.size(), std::pair(100L, 20L));
    green.close();
    const long before = red.frames.count();
    red->Repaint();
    EXPECT_TRUE(wait_for([&] { return red.frames.count() > before; }));
    EXPECT_EQ(red.frames.centre(), k_red);
}

class PacedByRequest : public RuntimeTest {
protected:
    void prepare() override {
        cWebDisplayCEFBrowserManager::SetPacing(cWebDisplayPacing::OnRequest);
    }
};

TEST_F(PacedByRequest, FramesComeAndStaticPagesAreRepainted) {
    shown_page animated({.url = animated_url()});
    shown_page still({.url = colour_url("#00f")});
    EXPECT_TRUE(wait_for([&] { return animated.frames.count() > 20; })) << animated.frames.count();
    EXPECT_TRUE(still.wait_for_colour(k_blue));
    animated.close();
    const long before = still.frames.count();
    still->Repaint();
    EXPECT_TRUE(wait_for([&] { return still.frames.count() > before; }));
}

}  // namespace
}  // namespace pennywort::runtime_test
