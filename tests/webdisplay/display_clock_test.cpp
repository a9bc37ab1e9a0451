// display_clock_test.cpp - a display that paints on its host's ticks.
#include <string>
#include <thread>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using DisplayTest = FakeRuntimeTest;
using strings = std::vector<std::string>;

zRecord on_host_clock(zRecord settings) {
    settings.SetBool("web_host_clock", true);
    return settings;
}

TEST_F(DisplayTest, OnItsHostsClockItPaintsOncePerTick) {
    script().animate = true;
    start();
    screen s(on_host_clock(page("http://a/")));
    show(s);
    EXPECT_TRUE(fake().browser(1).external_begin_frame);
    s.seen.frames.clear();
    loop_works(5);
    EXPECT_TRUE(s.seen.frames.empty()) << "nobody has ticked";
    for (std::size_t tick = 1; tick <= 10; ++tick) {
        EXPECT_TRUE(s->NextFrame());
        ASSERT_TRUE(loop_until([&] { return s.seen.frames.size() >= tick; }));
        EXPECT_EQ(s.seen.frames.size(), tick);
    }
    cWebDisplayFrameCounts counts;
    s->GetFrameCounts(counts);
    EXPECT_EQ(counts.ticks, 10u);
    EXPECT_EQ(counts.ticks_missed, 0u);
    EXPECT_GE(counts.painted, 10u);
}

TEST_F(DisplayTest, ATickOfAStillPagePaintsNothingAndIsNotMissed) {
    start();
    screen s(on_host_clock(page("http://a/")));
    show(s);
    EXPECT_TRUE(s->NextFrame());
    ASSERT_TRUE(loop_until([&] { return s.seen.frames.size() == 1; }));
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(s->NextFrame());
    loop_works(3);
    EXPECT_EQ(s.seen.frames.size(), 1u);
    cWebDisplayFrameCounts counts;
    s->GetFrameCounts(counts);
    EXPECT_EQ(counts.ticks, 101u);
    EXPECT_EQ(counts.ticks_missed, 0u);
}

// The page counts its animation frames and reports them. Two ticks may be on their way.
TEST_F(DisplayTest, TicksThatThePageCouldNotFollowAreCountedByItsReports) {
    start();
    screen s(on_host_clock(page("http://a/")));
    show(s);
    const auto report = [](const char16_t* frames) {
        fake().post([frames] {
            fake().message(1, "execute",
                           {std::u16string(u"thinternal-page-frames"), std::u16string(frames)});
        });
        settle();
    };
    EXPECT_TRUE(s->NextFrame());  // paints the loaded page, so that the rest paints nothing
    loop_works(2);
    report(u"10");
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(s->NextFrame());
    loop_works(2);
    report(u"20");
    cWebDisplayFrameCounts counts;
    s->GetFrameCounts(counts);
    EXPECT_EQ(counts.ticks, 21u);
    EXPECT_EQ(counts.ticks_missed, 8u);
    for (const char16_t* nonsense : {u"", u"-5", u"NaN", u"99999999999999999999", u"0"}) {
        report(nonsense);
    }
    EXPECT_EQ(s.seen.commands, strings{}) << "reports are not the host's";
}

TEST_F(DisplayTest, APageThatRunsByItselfHasNoReportsOfItsFrames) {
    start();
    screen s(page("http://a/"));
    show(s);
    for (const auto& code : scripts_of(1)) {
        EXPECT_EQ(code.find("thinternal-page-frames"), std::string::npos);
    }
    fake().post([] {
        fake().message(1, "execute",
                       {std::u16string(u"thinternal-page-frames"), std::u16string(u"10")});
    });
    settle();
    EXPECT_EQ(s.seen.commands, strings{"thinternal-page-frames(10)"}) << "any page may say that";
}

TEST_F(DisplayTest, TicksMayComeFromAnotherThread) {
    script().animate = true;
    start();
    screen s(on_host_clock(page("http://a/")));
    show(s);
    s.seen.frames.clear();
    std::thread([&] {
        for (int i = 0; i < 20; ++i) EXPECT_TRUE(s->NextFrame());
    }).join();
    EXPECT_TRUE(loop_until([&] { return s.seen.frames.size() == 20; }));
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(DisplayTest, TicksWithoutAPageAreRefused) {
    start();
    screen s(on_host_clock(page("http://a/")));
    EXPECT_FALSE(s->NextFrame());
    show(s);
    s->Close();
    EXPECT_FALSE(s->NextFrame());
    cWebDisplayFrameCounts counts;
    s->GetFrameCounts(counts);
    EXPECT_EQ(counts.ticks, 0u);
}

TEST_F(DisplayTest, TicksOfADisplayThatRunsByItselfAreRefused) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_FALSE(s->NextFrame());
    EXPECT_EQ(fake().browser(1).begin_frames, 0);
}

}  // namespace
