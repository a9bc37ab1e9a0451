// page_timeline_films_test.cpp - the machine that moves a page's time: films whose pictures move.
#include "tests/webdisplay/page_timeline_fixture.h"

namespace pennywort::webdisplay::timeline_test {
namespace {

class MovingFilm : public PageTimeline {
protected:
    // To the second frame of a film; what is asked for from then on.
    void play() {
        begin();
        say_driver("film");
        page.calls.clear();
        page.stamps.clear();
    }
    // In milliseconds of the page's time.
    std::vector<double> moments() const {
        std::vector<double> all;
        for (const auto stamp : page.stamps) {
            all.push_back(static_cast<double>(stamp / 1000 - k_zero_us) / 1000);
        }
        return all;
    }
    // The expressions that tell when what happens.
    std::vector<std::string> order() const {
        std::vector<std::string> all;
        for (const json& call : page.calls) {
            const std::string text = call["params"].value("expression", "");
            for (const char* part : {"rest'](true", "rest'](false", "films", "shown", "turn"}) {
                if (text.find(part) != std::string::npos) all.emplace_back(part);
            }
        }
        return all;
    }
    static constexpr std::int64_t k_zero_us = 5'002'300;
};

TEST_F(MovingFilm, IsPutBetweenTwoFramesAndItsPictureIsShownBeforeItsOwn) {
    play();
    page.shows_at = 1;
    ask(20'000);
    pass(1ms);
    EXPECT_EQ(moments(), (std::vector{19.990, 19.991, 20.0}));
    EXPECT_EQ(order(), (std::vector<std::string>{"turn", "rest'](true", "films", "shown", "turn",
                                                 "rest'](false", "turn"}));
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(MovingFilm, IsNotPutBeforeTheFrameBeforeIsDrawn) {
    play();
    page.refuses = 3;
    ask(20'000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(expressions_with("films").empty()) << i;
        pass(1ms);
    }
    EXPECT_EQ(expressions_with("films").size(), 1u);
}

TEST_F(MovingFilm, AFrameWithoutAPictureOfItsOwnIsOverWithTheNextOneThatNobodySees) {
    play();
    ask(20'000);
    const auto taken = page.stamps.size();
    page.silent_about = "films";
    ask(40'000);
    EXPECT_EQ(page.stamps.size(), taken + 1);
    EXPECT_EQ(ends, (std::vector{k_painted, k_unchanged}));
}

TEST_F(MovingFilm, WhatIsPaintedInFramesThatNobodySeesIsNoFrame) {
    play();
    page.shows_at = 2;
    ask(20'000);
    EXPECT_FALSE(timeline.shows_frame());
    paint();
    EXPECT_EQ(ends, std::vector{k_painted});
    for (int i = 0; i < 8; ++i) pass(1ms);
    EXPECT_TRUE(timeline.shows_frame());
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(MovingFilm, APictureThatNeverComesIsWaitedForInNineFrames) {
    play();
    page.shows_at = 1'000;
    ask(20'000);
    for (int i = 0; i < 1'100; ++i) pass(1ms);
    EXPECT_EQ(page.stamps.size(), 11u);
    EXPECT_EQ(moments().at(9), 19.999);
    EXPECT_EQ(moments().back(), 20.0);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(MovingFilm, AnAnswerThatComesTooLateIsNotThatOfTheNextFrame) {
    play();
    page.shows_at = 1'000;
    ask(20'000);
    for (int i = 0; i < 1'100; ++i) pass(1ms);
    paint();
    const auto late = std::exchange(page.shown, {});
    ask(40'000);
    ASSERT_EQ(late.size(), 1u);
    const json value{{"result", {{"value", true}}}};
    say(json{{"id", late[0]}, {"result", value}}.dump());
    pass(4ms);
    EXPECT_NE(moments().back(), 40.0);
}

// As one is that was begun while the page was off the browser's list.
TEST_F(MovingFilm, AFrameThatPassesThePageByIsBegunAgain) {
    play();
    page.passed_by = 1;
    ask(20'000);
    EXPECT_EQ(moments(), std::vector{19.990});
    pass(99ms);
    pass(1ms);
    pass(1ms);
    EXPECT_EQ(moments().back(), 20.0);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(MovingFilm, APageThatHasNoTurnInThemHangs) {
    play();
    page.passed_by = 1'000;
    ask(20'000);
    for (int i = 0; i < 31; ++i) pass(1s);
    ASSERT_EQ(page.faults.size(), 1u);
    EXPECT_NE(page.faults[0].find("the page hangs"), std::string::npos);
}

TEST_F(MovingFilm, ABrowserThatTakesNoFrameIsTold) {
    play();
    page.refuses = 1'000'000;
    ask(20'000);
    for (int i = 0; i < 21; ++i) pass(1s);
    EXPECT_EQ(page.faults, std::vector<std::string>{"the browser takes no frame"});
}

TEST_F(MovingFilm, HasNoFramesOfItsOwnWhenNoneMovesAnyMore) {
    play();
    page.has_films = false;
    ask(20'000);
    pass(1ms);
    paint();
    const auto before = page.stamps.size();
    ask(40'000);
    paint();
    EXPECT_EQ(page.stamps.size(), before + 1);
    say_driver("film");
    ask(60'000);
    pass(1ms);
    paint();
    EXPECT_GT(page.stamps.size(), before + 2);
    EXPECT_EQ(ends, std::vector(4, k_painted));
}

TEST_F(MovingFilm, AFrameThatLeavesNoMomentBeforeItIsAsItWas) {
    play();
    ask(1);
    paint();
    EXPECT_EQ(moments(), std::vector{0.001});
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

TEST_F(MovingFilm, APageThatMovesOnIsNotWaitedFor) {
    play();
    page.shows_at = 1'000;
    page.moves_on_ms = 0;
    ask(20'000);
    page.shows_at = 0;
    pass(2ms);
    EXPECT_EQ(moments().back(), 20.0);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
}

// The wish that the page rest is on its way when the next one begins, and comes to that. It rests
// itself for two frames that nobody sees.
TEST_F(MovingFilm, ThePageThatItsPageMovesOnToDoesNotStayAtRest) {
    play();
    page.silent_about = "0";
    ask(20'000);
    ASSERT_EQ(order().back(), "rest'](true");
    const int asked = page.calls.back()["id"];
    page.silent_about.clear();
    say(k_navigated);
    say(k_read);
    say(json{{"id", asked}, {"result", json::object()}}.dump());
    pass(1ms);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_EQ(order(), (std::vector<std::string>{"turn", "rest'](true", "rest'](false", "turn",
                                                 "rest'](true", "films", "shown", "turn",
                                                 "rest'](false", "turn"}));
}

TEST_F(MovingFilm, OneThatIsOnlyHeardCostsNoFrame) {
    begin();
    say_driver("");
    page.calls.clear();
    const auto before = page.stamps.size();
    ask(20'000);
    EXPECT_EQ(page.stamps.size(), before + 1);
    EXPECT_EQ(order(), (std::vector<std::string>{"turn", "films"}));
}

// --- films in a frame of another site, which has a driver of its own

class FilmApart : public MovingFilm {
protected:
    FilmApart() { page.has_films = false; }
    void play_apart() {
        begin();
        say_driver("apart", k_frame);
        say_driver("film", k_frame);
        page.calls.clear();
        page.stamps.clear();
    }
    void show(std::int64_t microseconds) {
        ask(microseconds);
        pass(1ms);
        paint();
    }
    // What that driver was asked.
    std::vector<std::string> asked() const {
        std::vector<std::string> all;
        for (const json& call : page.calls) {
            const bool is_its = call["params"].value("contextId", 0) == k_frame;
            if (is_its) all.push_back(call["params"]["expression"]);
        }
        return all;
    }
    static constexpr int k_frame = 7;
};

TEST_F(FilmApart, IsPutAndShownByItWhichIsNotToSound) {
    play_apart();
    show(20'000);
    EXPECT_EQ(asked(), (std::vector<std::string>{"window['thinternal films'](20000,false)",
                                                 page_scripts::k_shown}));
    show(40'000);
    EXPECT_EQ(asked().size(), 4u);
    EXPECT_EQ(moments().back(), 40.0);
    EXPECT_EQ(ends, std::vector(3, k_painted));
}

TEST_F(FilmApart, IsWaitedForAndNamedWhereItStalls) {
    play_apart();
    page.stalled = "http://a/b.webm";
    page.silent_about = "films'](20000,false)";
    ask(20'000);
    pass(30s);
    EXPECT_EQ(asked().size(), 2u) << "asked for once more";
    pass(30s);
    EXPECT_EQ(page.faults,
              std::vector<std::string>{"a film of the page does not follow: http://a/b.webm"});
}

TEST_F(FilmApart, MovesForAsLongAsOneOfAllDoes) {
    play_apart();
    show(20'000);
    page.has_films_apart = false;
    show(40'000);
    const auto before = page.stamps.size();
    show(60'000);
    EXPECT_EQ(page.stamps.size(), before + 1) << "none moves any more";
    say_driver("film", k_frame);
    page.has_films = true;
    show(80'000);
    show(100'000);
    EXPECT_GT(page.stamps.size(), before + 5);
    EXPECT_EQ(ends, std::vector(6, k_painted));
}

TEST_F(FilmApart, WhoseFrameHasGoneIsAskedNoMore) {
    play_apart();
    page.frame_gone = k_frame;
    show(20'000);
    EXPECT_EQ(asked().size(), 1u);
    show(40'000);
    EXPECT_EQ(asked().size(), 1u);
    EXPECT_EQ(ends, std::vector(3, k_painted));
}

TEST_F(FilmApart, WhosePageHasGoneIsAskedNoMore) {
    play_apart();
    say(R"({"method":"Runtime.executionContextsCleared","params":{}})");
    show(20'000);
    EXPECT_TRUE(asked().empty());
    EXPECT_EQ(ends, std::vector(2, k_painted));
}

}  // namespace
}  // namespace pennywort::webdisplay::timeline_test
