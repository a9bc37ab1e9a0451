// frames_test.cpp - the frames that reach a renderer: whole, marked, none lost, and none after the
// end.
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using FramesTest = FakeRuntimeTest;

TEST_F(FramesTest, FramesArriveWholeAtTheSizeOfTheDisplay) {
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    ASSERT_FALSE(s.seen.frames.empty());
    EXPECT_EQ(s.seen.frames.back().width, 320);
    EXPECT_EQ(s.seen.frames.back().height, 180);
    EXPECT_FALSE(s.seen.frames.back().is_popup);
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(FramesTest, FramesOfAWidgetAreMarked) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.frames.clear();
    fake().post([] { fake().paint_popup_widget(1, 20, 10); });
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_TRUE(s.seen.frames[0].is_popup);
    EXPECT_EQ(s.seen.frames[0].width, 20);
    EXPECT_EQ(s.seen.frames[0].height, 10);
}

TEST_F(FramesTest, AWidgetIsPartOfThePictureWhereTheHostWantsIt) {
    start();
    zRecord settings = page("http://a/");
    settings.SetBool("web_merge_widgets", true);
    settings.SetDouble("web_scale", 2);
    screen s(settings);
    show(s);
    s.seen.frames.clear();
    const auto first_pixel_of = [&](std::function<void()> act) {
        const std::size_t before = s.seen.frames.size();
        fake().post(std::move(act));
        EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() > before; }));
        settle();
        EXPECT_FALSE(s.seen.frames.back().is_popup);
        EXPECT_EQ(s.seen.frames.back().width, 128);
        return s.seen.frames.back().number;
    };
    std::uint32_t widget = 0;
    const auto opened = first_pixel_of([&] {
        fake().show_popup_widget(1, true);
        fake().place_popup_widget(1, 0, 0);
        widget = static_cast<std::uint32_t>(fake().browser(1).paints);
        fake().paint_popup_widget(1, 20, 10);
    });
    EXPECT_EQ(opened, 0xFF000000U | widget);
    EXPECT_NE(first_pixel_of([] { fake().place_popup_widget(1, 1, 0); }), opened);
    EXPECT_EQ(first_pixel_of([] { fake().place_popup_widget(1, -9, -4); }), opened)
        << "two pixels to a point of the page";
    EXPECT_NE(first_pixel_of([] { fake().place_popup_widget(1, -10, -4); }), opened);
    EXPECT_EQ(first_pixel_of([] { fake().place_popup_widget(1, 0, 0); }), opened);
    EXPECT_NE(first_pixel_of([] { fake().show_popup_widget(1, false); }), opened);
}

TEST_F(FramesTest, NoFrameIsLostOrDoubled) {
    start();
    screen s(page("http://a/"));
    show(s);
    s.seen.frames.clear();
    fake().post([] {
        for (int i = 0; i < 50; ++i) fake().paint(1);
    });
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    ASSERT_EQ(s.seen.frames.size(), 50u);
    for (std::size_t i = 1; i < 50; ++i) {
        EXPECT_EQ(s.seen.frames[i].number, s.seen.frames[0].number + i);
    }
}

TEST_F(FramesTest, AfterItsEndTheViewIsOnePixelAndNoFrameArrives) {
    script().keep_clients = true;
    start();
    screen s(page("http://a/", 320, 180));
    show(s);
    int width = 0, height = 0;
    fake().view_rect(1, width, height);
    EXPECT_EQ(width, 320);
    fake().post([] { fake().close_from_page(1); });
    ASSERT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    s.seen.frames.clear();
    fake().view_rect(1, width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, 1);
    fake().post([] { fake().paint_popup_widget(1, 4, 4); });
    settle();
    EXPECT_TRUE(s.seen.frames.empty());
}

TEST_F(FramesTest, AKilledRendererStopsTheFramesUntilThePageIsLoadedAgain) {
    script().animate = true;
    start();
    screen s(page("http://a/"));
    show(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.frames.size() > 3; }));
    fake().post([] { fake().kill_renderer(1); });
    loop_works(3);
    s.seen.frames.clear();
    s->Repaint();
    loop_works(5);
    EXPECT_TRUE(s.seen.frames.empty());
    s->LoadUrl("http://a/");
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_TRUE(loop_until([&] { return count_of(s.seen.events, "loaded http://a/") == 2; }));
}

}  // namespace
