// page_clock_host_test.cpp - what a host may do with a display whose page lives by a clock of its
// own, and when, on the fake runtime.
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <utility>

#include "tests/webdisplay/page_clock_fixture.h"

namespace {

class PageClockHost : public PageClockFixture {};

// --- in the end of a frame, with and without a picture

class PageClockEnds : public PageClockHost, public testing::WithParamInterface<bool> {
protected:
    void show_and_ask(screen& shown) {
        script().animate = GetParam();
        start_with_page_clocks();
        show(shown);
        for (int n = 0; n < 5; ++n) ASSERT_TRUE(ask(shown, n * 40'000));
    }
    static bool is_gone() {
        return loop_until([] { return fake().browser(1).closed; });
    }
    // The first of a still page is known to have its picture when the second is begun.
    void expect_first_frame(screen& shown) {
        m_ends.clear();
        ASSERT_TRUE(ask(shown, 0));
        ASSERT_TRUE(ask(shown, 40'000));
        ASSERT_TRUE(wait_for_ends(1));
        EXPECT_EQ(m_ends.front(), k_painted) << fault(shown);
    }
    // Of the five, where it is the second that brings another page or the end.
    ends expected() const {
        const auto how = GetParam() ? k_painted : k_unchanged;
        return {k_painted, how, k_failed, k_failed, k_failed};
    }
};

TEST_P(PageClockEnds, TheDisplayMayBeClosed) {
    screen s(on_page_clock("http://a/"));
    when_told(2, [&] { s->Close(); });
    show_and_ask(s);
    ASSERT_TRUE(wait_for_ends(5));
    EXPECT_EQ(m_ends, expected());
    EXPECT_TRUE(is_gone());
    EXPECT_FALSE(ask(s, 400'000));
}

TEST_P(PageClockEnds, TheDisplayMayBeReleased) {
    screen s(on_page_clock("http://a/"));
    when_told(1, [] { script().frames_to_drop = 5; });
    when_told(2, [&] { s.release(); });
    show_and_ask(s);
    ASSERT_TRUE(wait_for_ends(5));
    EXPECT_EQ(m_ends, expected());
    EXPECT_TRUE(is_gone());
}

TEST_P(PageClockEnds, AnotherPageMayBeAskedFor) {
    screen s(on_page_clock("http://a/"));
    when_told(2, [&] { s->LoadUrl("http://b/"); });
    show_and_ask(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); })) << fault(s);
    EXPECT_EQ(m_ends, expected());
    expect_first_frame(s);
}

TEST_P(PageClockEnds, TheDisplayMayBeClosedAndOpenedAgain) {
    screen s(on_page_clock("http://a/"));
    when_told(2, [&] {
        s->Close();
        s->LoadUrl("http://b/");
        EXPECT_TRUE(s->Open());
    });
    show_and_ask(s);
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); })) << fault(s);
    EXPECT_EQ(m_ends.size(), 5u);
    expect_first_frame(s);
}

TEST_P(PageClockEnds, AnotherDisplayMayBeClosed) {
    screen s(on_page_clock("http://a/"));
    screen other(on_page_clock("http://b/"));
    when_told(2, [&] { other->Close(); });
    script().animate = GetParam();
    start_with_page_clocks();
    show(other);
    show(s);
    for (int n = 0; n < 5; ++n) ASSERT_TRUE(ask(s, n * 40'000));
    ASSERT_TRUE(wait_for_ends(4)) << fault(s);
    EXPECT_TRUE(is_gone());
    EXPECT_EQ(m_ends.back(), GetParam() ? k_painted : k_unchanged);
}

// As in every callback of a display; also where the frame comes of no call of the runtime, but of a
// later try to begin the next.
TEST_P(PageClockEnds, ShutdownIsRefused) {
    screen s(on_page_clock("http://a/"));
    when_told(1, [] { script().frames_to_drop = 5; });
    when_told(2, [] { cWebDisplayCEFBrowserManager::Shutdown(); });
    show_and_ask(s);
    ASSERT_TRUE(wait_for_ends(4)) << fault(s);
    EXPECT_TRUE(cWebDisplayCEFBrowserManager::IsInitialized());
    EXPECT_EQ(fake().shutdowns(), 0);
    EXPECT_EQ(m_ends.back(), GetParam() ? k_painted : k_unchanged);
}

INSTANTIATE_TEST_SUITE_P(Pictures, PageClockEnds, testing::Bool());

TEST_F(PageClockHost, ShutdownFailsTheFramesThatWait) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    for (int n = 0; n < 5; ++n) ASSERT_TRUE(ask(s, n * 40'000));
    shut_down();
    EXPECT_EQ(m_ends, ends(5, k_failed));
    EXPECT_FALSE(ask(s, 400'000));
}

TEST_F(PageClockHost, EachFrameMayAskForTheNext) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    std::int64_t moment = 0;
    std::function<void(cWebDisplayPageFrame)> next = [&](cWebDisplayPageFrame how) {
        m_ends.push_back(how);
        if (m_ends.size() < 50) s->AdvancePage(moment += 20'000, next);
    };
    ASSERT_TRUE(s->AdvancePage(0, next));
    ASSERT_TRUE(wait_for_ends(50)) << fault(s);
    EXPECT_EQ(m_ends, ends(50, k_painted));
    EXPECT_EQ(s.seen.frames.size(), 50u);
}

// --- moments

TEST_F(PageClockHost, AMomentThatCannotBeFailsWithItsReasonAndTheNextOneComes) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    ASSERT_TRUE(ask(s, 20'000));
    ASSERT_TRUE(wait_for_ends(1));
    EXPECT_EQ(fault(s), "");
    using limits = std::numeric_limits<std::int64_t>;
    for (const std::int64_t moment : {std::int64_t{20'000}, std::int64_t{0}, std::int64_t{-1},
                                      limits::min(), limits::max(), std::int64_t{1} << 62}) {
        m_ends.clear();
        ASSERT_TRUE(ask(s, moment));
        EXPECT_EQ(m_ends, ends{k_failed}) << moment;
        EXPECT_NE(fault(s), "") << moment;
    }
    m_ends.clear();
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    EXPECT_EQ(m_ends, ends{k_painted});
}

TEST_F(PageClockHost, OneTooManyFailsWithItsReasonAndThoseThatWaitCome) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    for (int n = 0; n < 12; ++n) ASSERT_TRUE(ask(s, n * 20'000));
    EXPECT_EQ(m_ends, ends(4, k_failed));
    EXPECT_NE(fault(s), "");
    ASSERT_TRUE(wait_for_ends(12)) << fault(s);
    EXPECT_EQ(ends(m_ends.begin() + 4, m_ends.end()), ends(8, k_painted));
}

TEST_F(PageClockHost, OneBeforeItsPageFailsWithItsReason) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(loop_until([&] { return ask(s, 0); })) << "there is a browser";
    EXPECT_EQ(m_ends, ends{k_failed});
    EXPECT_NE(fault(s), "");
}

// --- beside each other

TEST_F(PageClockHost, TwoOfThemAndOneInTheDaysTimeGoOnBesideEachOther) {
    script().animate = true;
    start_with_page_clocks();
    screen a(on_page_clock("http://a/"));
    screen b(on_page_clock("http://b/"));
    screen live(page("http://c/"));
    show(a);
    show(live);
    show(b);
    for (int n = 0; n < 5; ++n) {
        ASSERT_TRUE(ask(a, n * 40'000));
        ASSERT_TRUE(ask(b, n * 20'000));
        ASSERT_TRUE(wait_for_ends(static_cast<std::size_t>(n) * 2 + 2)) << fault(a) << fault(b);
    }
    EXPECT_EQ(m_ends, ends(10, k_painted));
    const auto step_of = [](int browser) {
        const auto times = fake().browser(browser).begin_times;
        return times[times.size() - 1] - times[times.size() - 2];
    };
    EXPECT_EQ(step_of(1), 40'000'000);
    EXPECT_EQ(step_of(3), 20'000'000);
    const std::size_t before = live.seen.frames.size();
    EXPECT_TRUE(loop_until([&] { return live.seen.frames.size() > before + 2; }));
    EXPECT_FALSE(ask(live, 0));
    EXPECT_FALSE(a->NextFrame());
}

TEST_F(PageClockHost, ANewSizeComesWithTheNextFrame) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    s->SetSize(100, 50);
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(wait_for_ends(2)) << fault(s);
    ASSERT_EQ(s.seen.frames.size(), 2u);
    EXPECT_EQ(s.seen.frames[0].width, 64);
    EXPECT_EQ(s.seen.frames[1].width, 100);
    EXPECT_EQ(s.seen.frames[1].height, 50);
}

// Several threads at once, none of which waits for a frame of the others.
TEST_F(PageClockHost, EachFrameOfManyThreadsIsToldOnce) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    std::atomic<int> asked{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int n = 0; n < 25; ++n) asked += ask(s, (n * 4 + thread) * 1000) ? 1 : 0;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(asked, 100);
    ASSERT_TRUE(wait_for_ends(100)) << fault(s);
    settle();
    EXPECT_EQ(m_ends.size(), 100u);
}

// --- its day

class PageClockDay : public PageClockHost, public testing::WithParamInterface<double> {};

TEST_P(PageClockDay, OneThatNoClockHoldsIsToday) {
    start_with_page_clocks();
    zRecord settings = on_page_clock("http://a/");
    settings.SetDouble("web_page_day", GetParam());
    screen s(settings);
    show(s);
    for (const std::string& params : fake().browser(1).inspector_parameters) {
        EXPECT_EQ(params.find("\"initialVirtualTime\":null"), std::string::npos) << params;
        EXPECT_EQ(params.find("e+"), std::string::npos) << params;
    }
}

INSTANTIATE_TEST_SUITE_P(Days, PageClockDay,
                         testing::Values(-1.0, 1e300, std::numeric_limits<double>::infinity(),
                                         std::numeric_limits<double>::quiet_NaN()));

// --- its sound

// It must not, and nothing comes of it.
class deleting_hearer : public cBrowserAudioReceiverInterface {
public:
    void AudioStarted(long, long) override {}
    void AudioPacket(const float* const*, long, long, std::int64_t) override {
        ++packets;
        if (work) std::exchange(work, {})();
    }
    void AudioStopped() override {}

    int packets = 0;
    std::function<void()> work;
};

class PageClockHearer : public PageClockHost {
protected:
    void sound_with(std::function<void()> work) {
        script().animate = true;
        script().page_sounds_like = "96:AACAPwAAAL8=";
        hears.work = std::move(work);
        start_with_page_clocks();
    }
    static zRecord sounding() {
        zRecord settings = on_page_clock("http://a/");
        settings.SetBool("web_sound", true);
        return settings;
    }

    deleting_hearer hears;
};

TEST_F(PageClockHearer, ItMayTakeItselfAway) {
    screen s(sounding());
    sound_with([&] { s->SetAudioReceiver(nullptr); });
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    EXPECT_EQ(hears.packets, 1);
    EXPECT_EQ(m_ends, ends{k_painted});
}

TEST_F(PageClockHearer, OneThatReleasesItsDisplayAgainstTheRulesEndsIt) {
    screen s(sounding());
    sound_with([&] {
        s->SetAudioReceiver(nullptr);
        s.release();
    });
    s->SetAudioReceiver(&hears);
    show(s);
    ask(s, 0);
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_TRUE(wait_for_ends(1));
    EXPECT_EQ(hears.packets, 1);
}

TEST_F(PageClockHearer, OneThatAsksForAnotherPageGetsIt) {
    screen s(sounding());
    sound_with([&] { s->LoadUrl("http://b/"); });
    s->SetAudioReceiver(&hears);
    show(s);
    ask(s, 0);
    EXPECT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); })) << fault(s);
    s->SetAudioReceiver(nullptr);
}

}  // namespace
