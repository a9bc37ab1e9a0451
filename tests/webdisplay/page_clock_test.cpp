// page_clock_test.cpp - a display whose page lives by a clock of its own, on the fake runtime.
#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/support/collected_traces.h"
#include "tests/support/effort.h"
#include "tests/webdisplay/page_clock_fixture.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/page_clock.h"

namespace {

using strings = std::vector<std::string>;

class PageClockTest : public PageClockFixture {
protected:
    // By the binding of the driver of the page's films.
    void say_driver(const std::string& payload) {
        bool is_told = false;
        fake().post([&] {
            fake().inspector_event(1, R"({"method":"Runtime.bindingCalled","params":{"name":)"
                                      R"("thinternalFilms","payload":")" +
                                          payload + "\"}}");
            is_told = true;
        });
        ASSERT_TRUE(loop_until([&] { return is_told; }));
    }
};

TEST_F(PageClockTest, EachFrameIsStampedWithItsOwnMoment) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"});
    EXPECT_TRUE(s.seen.frames.empty()) << "what is painted before the first frame is nobody's";
    for (int n = 0; n < 10; ++n) {
        ASSERT_TRUE(ask(s, n * 40'000));
        ASSERT_TRUE(wait_for_ends(static_cast<std::size_t>(n) + 1)) << fault(s);
        EXPECT_EQ(m_ends.back(), k_painted);
        EXPECT_EQ(s.seen.frames.size(), static_cast<std::size_t>(n) + 1);
    }
    const auto times = fake().browser(1).begin_times;
    ASSERT_GE(times.size(), 14u);
    // The first one follows four that nobody sees, a microsecond apart.
    const std::size_t zero = times.size() - 10;
    const auto from_zero = [&](std::size_t n) { return times[n] - times[zero]; };
    for (std::size_t n = 0; n < 4; ++n) {
        EXPECT_EQ(from_zero(zero - 4 + n), -10'000 + 1000 * static_cast<std::int64_t>(n)) << n;
    }
    for (int n = 1; n < 10; ++n) {
        EXPECT_EQ(from_zero(zero + static_cast<std::size_t>(n)), 40'000'000LL * n) << n;
    }
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(PageClockTest, AStillPageHasOnePictureAndIsUnchangedAfterIt) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    for (int n = 0; n < 4; ++n) ASSERT_TRUE(ask(s, n * 40'000));
    ASSERT_TRUE(wait_for_ends(3)) << fault(s);
    EXPECT_EQ(m_ends, (std::vector{k_painted, k_unchanged, k_unchanged}));
    EXPECT_EQ(s.seen.frames.size(), 1u);
}

// The browser draws each frame twice then, and a third time where the second brings no picture.
TEST_F(PageClockTest, APageWithAFilmHasOnePictureAFrame) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    say_driver("stands");
    for (int n = 0; n < 4; ++n) {
        const auto taken = fake().browser(1).begin_times.size();
        ASSERT_TRUE(ask(s, n * 40'000));
        ASSERT_TRUE(wait_for_ends(static_cast<std::size_t>(n) + 1)) << fault(s);
        EXPECT_EQ(m_ends.back(), k_painted);
        ASSERT_EQ(s.seen.frames.size(), static_cast<std::size_t>(n) + 1);
        EXPECT_GE(fake().browser(1).begin_times.size(), taken + 2);
    }
    EXPECT_TRUE(s.seen.all_on_display_thread);
}

TEST_F(PageClockTest, AStillPageWithAFilmHasItsPictureAndIsUnchangedByItself) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    say_driver("stands");
    for (int n = 0; n < 3; ++n) {
        ASSERT_TRUE(ask(s, n * 40'000));
        ASSERT_TRUE(wait_for_ends(static_cast<std::size_t>(n) + 1)) << fault(s);
    }
    EXPECT_EQ(m_ends, (std::vector{k_painted, k_unchanged, k_unchanged}));
    EXPECT_EQ(s.seen.frames.size(), 1u);
}

TEST_F(PageClockTest, AWidgetIsInTheFirstPictureAlthoughThePageStandsStill) {
    start_with_page_clocks();
    zRecord settings = on_page_clock("http://a/");
    settings.SetBool("web_merge_widgets", true);
    screen s(settings);
    show(s);
    std::uint32_t widget = 0;
    fake().post([&] {
        fake().show_popup_widget(1, true);
        EXPECT_TRUE(status_of(s).isWidgetOpening);
        widget = static_cast<std::uint32_t>(fake().browser(1).paints);
        fake().paint_popup_widget(1, 20, 10);
    });
    settle();
    EXPECT_FALSE(status_of(s).isWidgetOpening);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    EXPECT_EQ(m_ends[0], k_painted);
    ASSERT_FALSE(s.seen.frames.empty());
    EXPECT_EQ(s.seen.frames[0].number, 0xFF000000U | widget);
    EXPECT_FALSE(s.seen.frames[0].is_popup);
}

// Its scripts may run as at a user's click, for a host that asks its inspector for that.
TEST_F(PageClockTest, AClickThatNobodyMadeOpensNoWindowOfTheUsers) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    int id = -1;
    fake().post([&] { id = fake().open_popup(1, "http://popup/", true); });
    ASSERT_TRUE(loop_until([&] { return id >= 0; }));
    settle();
    EXPECT_GT(id, 0) << "it is left to the runtime";
}

TEST_F(PageClockTest, TheBrowserBeginsEmptyAndThePageIsLoadedWhenItsClockStands) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    const auto browser = fake().browser(1);
    EXPECT_EQ(browser.start_url, "about:blank");
    EXPECT_EQ(browser.loads, strings{"http://a/"});
    EXPECT_TRUE(browser.external_begin_frame);
    EXPECT_EQ(browser.inspector_observers, 1);
    const cWebDisplayPageStatus status = status_of(s);
    EXPECT_EQ(status.phase, cWebDisplayPagePhase::Loaded);
    EXPECT_EQ(std::string(status.url.View()), "http://a/");
}

TEST_F(PageClockTest, AnotherPageBeginsAtItsOwnTimeZero) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(ask(s, 5'000'000));
    ASSERT_TRUE(wait_for_ends(2)) << fault(s);
    s->LoadUrl("http://b/");
    s->LoadNextUrl();
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); })) << fault(s);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(wait_for_ends(3));
    EXPECT_EQ(m_ends.back(), k_painted) << fault(s);
}

TEST_F(PageClockTest, FramesMayBeAskedForOnAnotherThreadAndEndOnTheDisplayThread) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    std::thread::id ended_on;
    std::thread([&] {
        EXPECT_TRUE(s->AdvancePage(0, [&](cWebDisplayPageFrame how) {
            ended_on = std::this_thread::get_id();
            m_ends.push_back(how);
        }));
    }).join();
    ASSERT_TRUE(wait_for_ends(1));
    EXPECT_EQ(ended_on, std::this_thread::get_id());
    EXPECT_EQ(m_ends, std::vector{k_painted});
}

TEST_F(PageClockTest, ThePageIsAskedForAValueBetweenItsFrames) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    strings values;
    std::thread::id told_on;
    const auto ask_page = [&](const char* expression) {
        return s->AskPage(zString(expression), [&](const zString& value) {
            told_on = std::this_thread::get_id();
            values.emplace_back(value.View());
        });
    };
    EXPECT_FALSE(ask_page("too early")) << "no browser yet";
    show(s);
    ASSERT_TRUE(ask(s, 0));
    std::thread([&] { EXPECT_TRUE(ask_page("document.title")); }).join();
    ASSERT_TRUE(loop_until([&] { return values.size() == 1; })) << fault(s);
    EXPECT_EQ(values, strings{"document.title"}) << "the fake says what it was asked";
    EXPECT_EQ(told_on, std::this_thread::get_id());
    ASSERT_TRUE(ask_page("never"));
    s->Close();
    EXPECT_TRUE(loop_until([&] { return values.size() == 2; })) << "told that there is none";
}

TEST_F(PageClockTest, ADisplayInTheDaysTimeIsNotAskedSo) {
    start();
    screen s(page("http://a/"));
    show(s);
    EXPECT_FALSE(s->AskPage(zString("1"), [](const zString&) { FAIL(); }));
}

TEST_F(PageClockTest, WhatDoesNotRiseOrComesTooEarlyFails) {
    script().animate = true;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    EXPECT_FALSE(ask(s, 0)) << "no browser yet";
    show(s);
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(ask(s, -1));
    ASSERT_TRUE(wait_for_ends(3));
    EXPECT_EQ(m_ends, (std::vector{k_failed, k_failed, k_painted}));
}

TEST_F(PageClockTest, AFailedLoadAndALostPageFailTheFramesThatWait) {
    script().pages["http://bad/"].error = -105;
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    for (int n = 0; n < 3; ++n) ASSERT_TRUE(ask(s, n * 40'000));
    fake().post([] { fake().kill_renderer(1); });
    ASSERT_TRUE(wait_for_ends(3));
    EXPECT_EQ(m_ends.back(), k_failed);
    EXPECT_EQ(fault(s), "the page is lost");
    s->LoadUrl("http://b/");
    s->LoadNextUrl();
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); })) << fault(s);
    EXPECT_EQ(fault(s), "") << "that was of the page before";
}

// It is fetched when its page has come, at a moment of the day's, and holds the page's time.
TEST_F(PageClockTest, ThePagesIconIsFetchedInTheDaysTimeAlone) {
    script().pages["http://a/"].resources = {"http://a/favicon.ico", "http://a/b.png"};
    start_with_page_clocks();
    for (const bool is_of_the_day : {false, true}) {
        screen s(is_of_the_day ? page("http://a/") : on_page_clock("http://a/"));
        show(s);
        std::vector<bool> allowed;
        for (const auto& one : fake().requests()) {
            const bool is_its = one.browser == fake().creates() && one.url != "about:blank";
            if (is_its) allowed.push_back(one.allowed);
        }
        EXPECT_EQ(allowed, (std::vector{true, is_of_the_day, true}));
    }
}

TEST_F(PageClockTest, ClosingInTheMiddleFailsWhatWaits) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    for (int n = 0; n < 5; ++n) ASSERT_TRUE(ask(s, n * 40'000));
    s->Close();
    EXPECT_EQ(m_ends, std::vector<cWebDisplayPageFrame>(5, k_failed));
    EXPECT_FALSE(ask(s, 200'000));
    EXPECT_EQ(fake().browser(1).inspector_observers, 0);
}

// The browser's end comes to the display nevertheless: it opens again at once.
TEST_F(PageClockTest, AReceiverThatThrowsWhenItClosesHoldsNothingUp) {
    start_with_page_clocks();
    screen s(on_page_clock("http://a/"));
    show(s);
    int told = 0;
    const auto throwing = [&](auto&&...) {
        ++told;
        throw std::runtime_error("the host's own");
    };
    ASSERT_TRUE(s->AdvancePage(0, throwing));
    ASSERT_TRUE(s->AskPage("1", throwing));
    ASSERT_TRUE(s->AdvancePage(40'000, throwing));
    s->Close();
    EXPECT_EQ(told, 3);
    const cWebDisplayPageStatus status = status_of(s);
    EXPECT_NE(status.phase, cWebDisplayPagePhase::Loaded);
    EXPECT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([] { return fake().creates() == 2; }));
}

// --- its sound

class hearer : public cBrowserAudioReceiverInterface {
public:
    void AudioStarted(long, long) override { events.push_back("started"); }
    void AudioPacket(const float* const*, long, long, std::int64_t milliseconds) override {
        events.push_back("packet at " + std::to_string(milliseconds));
    }
    void AudioStopped() override {
        events.push_back("stopped");
        if (throws) throw std::runtime_error("the host's own");
    }

    strings events;
    bool throws = false;
};

class PageClockSoundTest : public PageClockTest {
protected:
    static zRecord sounding() {
        zRecord settings = on_page_clock("http://a/");
        settings.SetBool("web_sound", true);
        return settings;
    }
    // What the page was asked at its frames, those that nobody sees left out.
    static strings frames_asked() {
        strings all;
        for (const std::string& params : fake().browser(1).inspector_parameters) {
            const auto at = params.find("thinternal films'](");
            if (at == std::string::npos) continue;
            const auto from = params.find('(', at);
            const std::string asked = params.substr(from, params.find(')', at) - from + 1);
            if (asked.compare(0, 3, "(0,") != 0) all.push_back(asked);
        }
        return all;
    }
    void tell_of_films() { say_driver({}); }
};

TEST_F(PageClockSoundTest, ThePageIsToldAtEachFrameWhetherAnybodyHearsIt) {
    script().animate = true;
    start_with_page_clocks();
    screen s(sounding());
    hearer hears;
    show(s);
    tell_of_films();
    ASSERT_TRUE(ask(s, 20'000));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    s->SetAudioReceiver(&hears);
    ASSERT_TRUE(ask(s, 40'000));
    ASSERT_TRUE(wait_for_ends(2)) << fault(s);
    s->SetAudioReceiver(nullptr);
    ASSERT_TRUE(ask(s, 60'000));
    ASSERT_TRUE(wait_for_ends(3)) << fault(s);
    EXPECT_EQ(frames_asked(), (strings{"(20000,false)", "(40000,true)", "(60000,false)"}));
}

TEST_F(PageClockSoundTest, NobodyHearsAMutedOne) {
    script().animate = true;
    start_with_page_clocks();
    zRecord settings = sounding();
    settings.SetBool("web_muted", true);
    screen s(settings);
    hearer hears;
    s->SetAudioReceiver(&hears);
    show(s);
    tell_of_films();
    ASSERT_TRUE(ask(s, 20'000));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    EXPECT_EQ(frames_asked(), strings{"(20000,false)"});
    s->SetAudioReceiver(nullptr);
}

// The browser's end comes to the display nevertheless: it opens again at once.
TEST_F(PageClockSoundTest, AReceiverThatThrowsWhenItClosesHoldsNothingUp) {
    script().animate = true;
    script().page_sounds_like = "96:AACAPwAAAL8=";
    start_with_page_clocks();
    screen s(sounding());
    hearer hears;
    hears.throws = true;
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(ask(s, 0));
    ASSERT_TRUE(wait_for_ends(1)) << fault(s);
    {
        const pennywort::tests::collected_traces traces;
        s->Close();
        EXPECT_EQ(traces.text().find("in time"), std::string::npos) << traces.text();
    }
    ASSERT_GE(hears.events.size(), 3u);
    EXPECT_EQ(hears.events.front(), "started");
    EXPECT_EQ(hears.events[1], "packet at 2");
    EXPECT_EQ(hears.events.back(), "stopped");
    EXPECT_TRUE(s->Open());
    EXPECT_TRUE(loop_until([] { return fake().creates() == 2; }));
    s->Close();
    s->SetAudioReceiver(nullptr);
}

// Closed at each step on the way to its first frames.
TEST_F(PageClockTest, ItMayBeClosedAtEveryStep) {
    start_with_page_clocks();
    for (int works = 0; works < 60; works += pennywort::tests::effort(1, 4)) {
        SCOPED_TRACE(works);
        screen s(on_page_clock("http://a/"));
        EXPECT_TRUE(s->Open());
        for (int n = 0; n < works; ++n) {
            loop_works(1);
            if (!s.seen.events.empty()) ask(s, n * 40'000);
        }
        s->Close();
    }
}

TEST_F(PageClockTest, WithoutTheSettingThereIsNoFrameToAskFor) {
    start_with_page_clocks();
    screen s(page("http://a/"));
    show(s);
    EXPECT_FALSE(ask(s, 0));
    EXPECT_EQ(fake().browser(1).inspector_observers, 0);
    EXPECT_EQ(fake().browser(1).start_url, "http://a/");
}

TEST_F(PageClockTest, WithoutEnablePageClockItDoesNotOpen) {
    start();
    screen s(on_page_clock("http://a/"));
    EXPECT_FALSE(s->Open());
    EXPECT_EQ(fake().creates(), 0);
}

bool has_switch(const std::string& name, const std::string& value) {
    const auto& all = fake_cef_control()->switches();
    return std::any_of(all.begin(), all.end(),
                       [&](const auto& one) { return one.name == name && one.value == value; });
}

TEST_F(PageClockTest, ItsSwitchesReachTheRuntime) {
    start_with_page_clocks();
    EXPECT_TRUE(has_switch("enable-features", "DisplaySchedulerAsClient"));
    EXPECT_TRUE(has_switch("run-all-compositor-stages-before-draw", ""));
    EXPECT_TRUE(has_switch("disable-site-isolation-trials", ""));
    EXPECT_TRUE(has_switch("disable-back-forward-cache", ""));
    EXPECT_TRUE(has_switch("disable-features", "PaintHolding"));
    EXPECT_TRUE(has_switch("js-flags", "--random-seed=7"));
}

TEST_F(PageClockTest, ExactTicksOfAHostsClockTakeTheFirstTwoOnly) {
    cWebDisplayCEFBrowserManager::EnableExactTicks();
    start();
    EXPECT_TRUE(has_switch("enable-features", "DisplaySchedulerAsClient"));
    EXPECT_TRUE(has_switch("run-all-compositor-stages-before-draw", ""));
    EXPECT_FALSE(has_switch("disable-site-isolation-trials", ""));
}

// To the script engine 0 is a wish for dice that nobody can foresee.
TEST_F(PageClockTest, EachSeedIsOne) {
    cWebDisplayCEFBrowserManager::EnablePageClock(0);
    start();
    EXPECT_TRUE(has_switch("js-flags", "--random-seed=2147483648"));
}

// The runtime takes the last of equal switches only.
TEST_F(PageClockTest, TheHostsOwnFeaturesAndScriptFlagsAreKeptWhenItGaveThemBeforeOrAfter) {
    for (const char* value : {"Replaced", "One,Two"}) {
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("enable-features", value);
    }
    cWebDisplayCEFBrowserManager::EnablePageClock(7);
    cWebDisplayCEFBrowserManager::EnableExactTicks();
    cWebDisplayCEFBrowserManager::AddCommandLineSwitch("js-flags", "--expose-gc");
    start();
    const auto last_of = [](const std::string& name) {
        std::string value;
        for (const auto& one : fake_cef_control()->switches()) {
            if (one.name == name) value = one.value;
        }
        return value;
    };
    EXPECT_EQ(last_of("enable-features"), "DisplaySchedulerAsClient,One,Two");
    EXPECT_EQ(last_of("js-flags"), "--random-seed=7 --expose-gc");
}

// Nobody but the runtime's library sees the page's time, and that only within the call.
TEST_F(PageClockTest, TheHostsOwnClockIsItsOwn) {
    start();
    using pennywort::webdisplay::page_moment;
    const auto before = std::chrono::steady_clock::now();
    const page_moment moment(1'000'000'000);
    EXPECT_GE(std::chrono::steady_clock::now(), before);
    EXPECT_FALSE(moment.was_read());
}

TEST_F(PageClockTest, ALibraryThatCannotBeLedSaysWhy) {
    start();
    static int no_function = 0;
    const auto led = pennywort::webdisplay::lead_clock_of(&no_function + (1 << 28));
    EXPECT_FALSE(led.is_ok());
    EXPECT_FALSE(led.text().empty());
}

}  // namespace
