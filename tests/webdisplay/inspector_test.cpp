// inspector_test.cpp - the host's calls of a page's inspector, and what it hears of it, on the fake
// runtime.
#include <string>
#include <thread>

#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using strings = std::vector<std::string>;

class listener : public cBrowserInspectorHandler {
public:
    void InspectorEvent(const zString& method, const zString& parameters) override {
        events.push_back(std::string(method.View()) + " " + std::string(parameters.View()));
        thread = std::this_thread::get_id();
        if (on_event) on_event();
    }

    strings events;
    std::thread::id thread;
    std::function<void()> on_event;
};

class InspectorTest : public FakeRuntimeTest {
protected:
    static zRecord inspected(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_inspector", true);
        return settings;
    }
    bool call(screen& shown, const char* method, const char* parameters) {
        return shown->CallInspector(method, parameters, [this](const zString& result) {
            m_results.emplace_back(result.View());
        });
    }
    bool wait_for_results(std::size_t count) {
        return loop_until([&] { return m_results.size() >= count; });
    }

    strings m_results;
};

TEST_F(InspectorTest, CallsBeforeTheBrowserComeBeforeItsPageAndInTheirOrder) {
    start();
    screen s(inspected("http://a/"));
    EXPECT_TRUE(call(s, "A.first", R"({"x":1})"));
    EXPECT_TRUE(call(s, "A.second", ""));
    show(s);
    EXPECT_EQ(s.seen.events, strings{"loaded http://a/"}) << "and nothing of the empty page";
    ASSERT_TRUE(wait_for_results(2));
    EXPECT_EQ(m_results, (strings{"{}", "{}"}));
    const auto browser = fake().browser(1);
    EXPECT_EQ(browser.inspector_methods, (strings{"A.first", "A.second"}));
    EXPECT_EQ(browser.inspector_parameters, (strings{R"({"x":1})", "{}"}));
    EXPECT_EQ(browser.start_url, "about:blank");
    EXPECT_EQ(browser.loads, strings{"http://a/"});
}

TEST_F(InspectorTest, ThePageWaitsForTheAnswers) {
    script().inspector_is_silent = true;
    start();
    screen s(inspected("http://a/"));
    ASSERT_TRUE(call(s, "A.b", ""));
    ASSERT_TRUE(s->Open());
    settle();
    EXPECT_EQ(fake().browser(1).inspector_methods, strings{"A.b"});
    EXPECT_EQ(fake().browser(1).loads, strings{});
    EXPECT_TRUE(s.seen.frames.empty()) << "the empty page is nobody's";
    s->LoadUrl("http://b/");
    settle();
    EXPECT_EQ(fake().browser(1).loads, strings{});
    s->Close();
    EXPECT_EQ(m_results, strings{""});
}

// Whatever has come of the browser and its empty page meanwhile.
TEST_F(InspectorTest, CallsGoOutInTheirOrderAtEveryStep) {
    start();
    for (int works = 0; works < 12; ++works) {
        SCOPED_TRACE(works);
        m_results.clear();
        screen s(inspected("http://a/"));
        ASSERT_TRUE(call(s, "A.first", ""));
        ASSERT_TRUE(s->Open());
        loop_works(works);
        ASSERT_TRUE(call(s, "A.second", ""));
        ASSERT_TRUE(wait_for_results(2));
        EXPECT_EQ(fake().browser(fake().browser_count()).inspector_methods,
                  (strings{"A.first", "A.second"}));
    }
}

TEST_F(InspectorTest, NoneGoesOutBeforeTheEmptyPageIsThere) {
    script().pages["about:blank"].never_ends = true;
    start();
    screen s(inspected("http://a/"));
    ASSERT_TRUE(call(s, "A.first", ""));
    ASSERT_TRUE(s->Open());
    settle();
    ASSERT_TRUE(call(s, "A.second", ""));
    settle();
    EXPECT_EQ(fake().browser(1).inspector_methods, strings{});
    s->Close();
    EXPECT_EQ(m_results, (strings{"", ""}));
}

TEST_F(InspectorTest, ItMayBeClosedAtEveryStep) {
    start();
    for (int works = 0; works < 12; ++works) {
        SCOPED_TRACE(works);
        m_results.clear();
        const int browsers_before = fake().browser_count();
        screen s(inspected("http://a/"));
        ASSERT_TRUE(call(s, "A.b", ""));
        ASSERT_TRUE(call(s, "A.c", ""));
        EXPECT_TRUE(s->Open());
        loop_works(works);
        s->Close();
        // Those that no browser has come for are dropped with the display.
        const bool has_come = fake().browser_count() > browsers_before;
        EXPECT_TRUE(m_results.size() == 2 || (!has_come && m_results.empty())) << m_results.size();
    }
}

TEST_F(InspectorTest, WithoutACallTheBrowserBeginsWithThePage) {
    start();
    screen s(inspected("http://a/"));
    show(s);
    EXPECT_EQ(fake().browser(1).start_url, "http://a/");
}

TEST_F(InspectorTest, CallsOfAnyThreadAreAnsweredOnTheDisplayThread) {
    start();
    screen s(inspected("http://a/"));
    show(s);
    std::thread::id answered_on;
    std::thread([&] {
        EXPECT_TRUE(s->CallInspector(
            "A.b", "{}", [&](const zString&) { answered_on = std::this_thread::get_id(); }));
        EXPECT_TRUE(s->CallInspector("A.unanswered", "", {}));
    }).join();
    ASSERT_TRUE(loop_until([&] { return answered_on != std::thread::id(); }));
    EXPECT_EQ(answered_on, std::this_thread::get_id());
}

TEST_F(InspectorTest, EventsAreHeardUntilTheReceiverGoes) {
    start();
    screen s(inspected("http://a/"));
    listener heard;
    s->SetInspectorReceiver(&heard);
    show(s);
    fake().inspector_event(1, R"({"method":"Log.entryAdded","params":{"n":1}})");
    fake().inspector_event(1, "no message");
    fake().inspector_event(1, R"({"method":"Bare.event"})");
    EXPECT_EQ(heard.events, (strings{R"(Log.entryAdded {"n":1})", "Bare.event "}));
    EXPECT_EQ(heard.thread, std::this_thread::get_id());
    s->SetInspectorReceiver(nullptr);
    fake().inspector_event(1, R"({"method":"Log.entryAdded","params":{"n":2}})");
    EXPECT_EQ(heard.events.size(), 2u);
}

TEST_F(InspectorTest, AReceiverMayCloseTheDisplay) {
    start();
    screen s(inspected("http://a/"));
    listener heard;
    heard.on_event = [&] { s->Close(); };
    s->SetInspectorReceiver(&heard);
    show(s);
    fake().post([] { fake().inspector_event(1, R"({"method":"A.b","params":{}})"); });
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    EXPECT_EQ(heard.events, strings{"A.b {}"});
    s->SetInspectorReceiver(nullptr);
    ASSERT_TRUE(call(s, "A.again", "")) << "it waits for the next browser";
    s->LoadUrl("http://b/");
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(wait_for_results(1));
    EXPECT_EQ(fake().browser(2).inspector_methods, strings{"A.again"});
}

TEST_F(InspectorTest, CallsThatAreOutComeToNothingWhenTheBrowserGoes) {
    script().inspector_is_silent = true;
    start();
    screen s(inspected("http://a/"));
    show(s);
    ASSERT_TRUE(call(s, "A.b", "{}"));
    settle();
    EXPECT_TRUE(m_results.empty());
    s->Close();
    EXPECT_EQ(m_results, strings{""});
    EXPECT_EQ(fake().browser(1).inspector_observers, 0);
}

TEST_F(InspectorTest, ADisplayThatIsOpenedAgainHasItAgain) {
    start();
    screen s(inspected("http://a/"));
    show(s);
    s->Close();
    ASSERT_TRUE(call(s, "A.again", "")) << "it waits for the next browser";
    s->LoadUrl("http://b/");
    ASSERT_TRUE(s->Open());
    ASSERT_TRUE(wait_for_results(1));
    EXPECT_EQ(fake().browser(2).inspector_methods, strings{"A.again"});
}

TEST_F(InspectorTest, ItIsThereBesideThePagesOwnClock) {
    script().one_frame_at_a_time = true;
    cWebDisplayCEFBrowserManager::EnablePageClock(7);
    start();
    zRecord settings = inspected("http://a/");
    settings.SetBool("web_page_clock", true);
    screen s(settings);
    ASSERT_TRUE(call(s, "A.b", ""));
    show(s);
    ASSERT_TRUE(wait_for_results(1));
    EXPECT_EQ(fake().browser(1).inspector_observers, 2);
    int frames = 0;
    ASSERT_TRUE(s->AdvancePage(0, [&](cWebDisplayPageFrame) { ++frames; }));
    ASSERT_TRUE(s->AdvancePage(40'000, [&](cWebDisplayPageFrame) { ++frames; }));
    EXPECT_TRUE(loop_until([&] { return frames == 1; }));
    s->Close();
    EXPECT_EQ(fake().browser(1).inspector_observers, 0);
}

TEST_F(InspectorTest, WithoutTheSettingThereIsNone) {
    start();
    screen s(page("http://a/"));
    EXPECT_FALSE(call(s, "A.b", ""));
    show(s);
    EXPECT_FALSE(call(s, "A.b", ""));
    EXPECT_EQ(fake().browser(1).inspector_observers, 0);
    EXPECT_TRUE(m_results.empty());
}

TEST_F(InspectorTest, WhatIsNoCallIsRefused) {
    start();
    screen s(inspected("http://a/"));
    show(s);
    EXPECT_FALSE(call(s, "", "{}"));
    for (const char* parameters : {"[]", "1", "{", "null", "{}}"}) {
        EXPECT_FALSE(call(s, "A.b", parameters)) << parameters;
    }
}

// --- what else a display is made with

TEST_F(InspectorTest, ThePictureIsLargerByTheScale) {
    start();
    zRecord settings = page("http://a/", 64, 36);
    settings.SetDouble("web_scale", 1.5);
    screen s(settings);
    show(s);
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    const auto browser = fake().browser(1);
    EXPECT_EQ(browser.view_width, 64) << "the page's own";
    EXPECT_EQ(browser.view_scale, 1.5);
    EXPECT_EQ(s.seen.frames.back().width, 96);
    EXPECT_EQ(s.seen.frames.back().height, 54);
}

TEST_F(InspectorTest, ThePageIsSmallerWhereItsPictureWouldBeTooLarge) {
    start();
    zRecord settings = page("http://a/", 20'000, 3);
    settings.SetDouble("web_scale", 2.5);
    screen s(settings);
    show(s);
    ASSERT_TRUE(loop_until([&] { return !s.seen.frames.empty(); }));
    EXPECT_EQ(fake().browser(1).view_width, 6553) << "16384 of 2.5";
    EXPECT_EQ(s.seen.frames.back().width, 16'383);
}

TEST_F(InspectorTest, TheBackgroundGoesToTheRuntimeUnlessItIsClear) {
    start();
    zRecord settings = page("http://a/");
    screen black(settings);
    settings.SetInt32("web_background", 0xFFFFFF);
    screen white(settings);
    settings.SetBool("web_transparent", true);
    screen clear(settings);
    for (screen* one : {&black, &white, &clear}) show(*one);
    EXPECT_EQ(fake().browser(1).background_color, 0xFF000000u);
    EXPECT_EQ(fake().browser(2).background_color, 0xFFFFFFFFu);
    EXPECT_EQ(fake().browser(3).background_color, 0u);
}

}  // namespace
