// page_timeline_films_test.cpp - the machine that moves a page's time: films whose pictures move.
#include <functional>

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

// The browser would drop a frame whose moment it has had.
TEST_F(MovingFilm, APageThatMovesOnWhileItIsShownHasNoMomentTwice) {
    play();
    page.shows_at = 1'000;
    ask(20'000);
    ASSERT_FALSE(moments().empty());
    ASSERT_EQ(moments().front(), 19.990);
    page.shows_at = 0;
    say(k_navigated);
    say(k_read);
    pass(2ms);
    paint();
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    const auto all = moments();
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end(), std::greater_equal<>()), all.end());
    EXPECT_EQ(all.back(), 20.0);
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

// --- films in the document, beside which a page's picture may come with the next frame only

class StandingFilm : public MovingFilm {
protected:
    void SetUp() override {
        begin();
        say_driver("stands");
        page.calls.clear();
        page.stamps.clear();
    }
    // So many of the frames for the page's moment of 20 ms are taken: its own, the one in which it
    // rests, and the one which shows that nothing comes any more.
    void take(int frames) {
        page.last_taken = (k_zero_us + 20'000 + frames - 2) * 1000;
        pass(1ms);
    }
    void ask_and_take(int frames) {
        take(frames);
        ask(20'000);
    }
    static constexpr frame_end k_first = k_painted;  // that of the frame before
};

TEST_F(StandingFilm, APictureThatComesAtRestIsThatOfTheFrame) {
    ask_and_take(1);
    EXPECT_FALSE(timeline.shows_frame());
    EXPECT_TRUE(timeline.is_at_frame());
    paint();
    EXPECT_EQ(ends, std::vector{k_first}) << "may be that of the frame before";
    take(2);
    EXPECT_TRUE(timeline.shows_frame());
    paint();
    EXPECT_EQ(ends, (std::vector{k_first, k_painted}));
    EXPECT_FALSE(timeline.shows_frame());
    take(3);
    EXPECT_EQ(moments(), (std::vector{19.999, 20.0})) << "what is known needs no third one";
    EXPECT_EQ(order(),
              (std::vector<std::string>{"turn", "rest'](true", "turn", "turn", "rest'](false"}));
}

TEST_F(StandingFilm, SoIsOneThatComesBeforeThePageHasHadItsTurnAtRest) {
    ask_and_take(1);
    page.is_read = false;
    take(2);
    paint();
    EXPECT_EQ(ends, std::vector{k_first});
    page.is_read = true;
    page.is_in_frame = true;
    take(2);
    EXPECT_EQ(ends, (std::vector{k_first, k_painted}));
    EXPECT_EQ(moments(), (std::vector{19.999, 20.0}));
}

TEST_F(StandingFilm, AHostThatHearsOfItMayAskForAnotherPage) {
    take(1);
    EXPECT_TRUE(timeline.advance(20'000, [this](frame_end) { timeline.ask_load(); }));
    turn();
    page.is_read = false;
    take(2);
    paint();
    page.is_read = true;
    page.is_in_frame = true;
    page.last_taken = std::numeric_limits<std::int64_t>::max();
    pass(1ms);
    pass(5ms);
    EXPECT_EQ(page.loads, 2);
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(StandingFilm, APictureBehindWhichNoneComesIsKnownByAThirdFrame) {
    ask_and_take(1);
    paint();
    take(2);
    EXPECT_EQ(ends, std::vector{k_first});
    take(3);
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged}));
    EXPECT_EQ(moments(), (std::vector{19.999, 20.0, 20.001}));
    paint();
    page.last_taken = std::numeric_limits<std::int64_t>::max();
    ask(40'000);
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged, k_unchanged})) << "each has one end";
}

TEST_F(StandingFilm, TheFrameAtRestMayPassThePageByToo) {
    ask_and_take(1);
    page.passed_by = 2;
    take(2);
    take(20);
    for (int i = 0; i < 10; ++i) pass(100ms);
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged}));
    for (std::size_t i = 1; i < page.stamps.size(); ++i) {
        EXPECT_LT(page.stamps[i - 1], page.stamps[i]);
    }
    EXPECT_TRUE(page.faults.empty());
}

TEST_F(StandingFilm, ABrowserThatTakesNoSecondFrameIsTold) {
    ask_and_take(1);
    for (int i = 0; i < 21; ++i) pass(1s);
    EXPECT_EQ(page.faults, std::vector<std::string>{"the browser takes no frame"});
    EXPECT_EQ(ends, (std::vector{k_first, k_failed}));
}

// The next page rests no more, and has its own frame; that of the page before keeps what it has.
TEST_F(StandingFilm, APageThatMovesOnHasNoSecondFrame) {
    ask_and_take(1);
    paint();
    say(k_navigated);
    say(k_read);
    take(3);
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged}));
    EXPECT_EQ(moments(), std::vector{19.999});
    page.last_taken = std::numeric_limits<std::int64_t>::max();
    ask(40'000);
    paint();
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged, k_painted}));
    const auto all = order();
    const auto rests = std::find(all.rbegin(), all.rend(), "rest'](true");
    EXPECT_NE(std::find(all.rbegin(), rests, "rest'](false"), rests);
}

TEST_F(StandingFilm, APageWhoseTurnIsHeldHasNoSecondFrame) {
    page.is_held = true;
    ask_and_take(1);
    paint();
    pass(100ms);
    EXPECT_EQ(ends, (std::vector{k_first, k_unchanged}));
    EXPECT_EQ(moments(), std::vector{19.999});
}

TEST_F(StandingFilm, APageThatIsHeldWhileItRestsHasItsFilmPutOnlyWhenItIsDrawn) {
    say_driver("film");
    page.has_films = true;
    page.shows_at = 0;
    page.last_taken = (k_zero_us + 19'999) * 1000;
    ask(20'000);
    page.is_held = true;
    page.last_taken = (k_zero_us + 20'000) * 1000;
    pass(1ms);
    pass(100ms);
    EXPECT_EQ(ends, std::vector{k_first});
    page.is_held = false;
    page.refuses = 3;
    page.last_taken = std::numeric_limits<std::int64_t>::max();
    page.calls.clear();
    ask(40'000);
    EXPECT_TRUE(expressions_with("films").empty());
    paint();
    EXPECT_EQ(ends, (std::vector{k_first, k_painted}));
    for (int i = 0; i < 4; ++i) pass(1ms);
    EXPECT_EQ(expressions_with("films").size(), 1u);
}

// A film that comes with the page's turn: what was painted in that frame has been shown.
TEST_F(MovingFilm, OneThatComesInTheMiddleOfAFrameChangesNothingOfThatFrame) {
    begin();
    page.stamps.clear();
    page.passed_by = 1;
    ask(20'000);
    say_driver("stands");
    EXPECT_TRUE(timeline.shows_frame());
    paint();
    pass(100ms);
    EXPECT_EQ(ends, (std::vector{k_painted, k_painted}));
    EXPECT_EQ(moments(), (std::vector{20.0, 20.001})) << "begun again for the page's turn";
    page.stamps.clear();
    ask(40'000);
    EXPECT_EQ(moments(), (std::vector{39.999, 40.0, 40.001}));
}

TEST_F(MovingFilm, OneThatStandsFromTheBeginningIsDrawnTwiceInTheFirstFrame) {
    stand();
    say_driver("stands");
    ask(0);
    const auto all = moments();
    ASSERT_GE(all.size(), 3u);
    EXPECT_EQ((std::vector(all.end() - 3, all.end())), (std::vector{-0.001, 0.0, 0.001}));
    EXPECT_EQ(ends, std::vector{k_unchanged});
}

TEST_F(StandingFilm, AScriptThatNeverEndsBeforeThePageRestsHangs) {
    page.silent_about = "0";
    ask(20'000);
    EXPECT_EQ(moments(), std::vector{19.999});
    for (int i = 0; i < 31; ++i) pass(1s);
    ASSERT_EQ(page.faults.size(), 1u);
    EXPECT_NE(page.faults[0].find("the page hangs"), std::string::npos);
}

// The page has not had a frame of its own since; so the film may be put at once.
TEST_F(StandingFilm, WhereItMovesThePageRestsUntilItIsPutForTheNextFrame) {
    say_driver("film");
    ask(20'000);
    page.calls.clear();
    page.stamps.clear();
    ask(40'000);
    EXPECT_EQ(moments(), (std::vector{39.990, 39.999, 40.0, 40.001}));
    EXPECT_EQ(order(), (std::vector<std::string>{"turn", "films", "shown", "turn", "rest'](false",
                                                 "turn", "rest'](true", "turn", "turn"}));
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
