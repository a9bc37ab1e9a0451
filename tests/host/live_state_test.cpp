// tests/host/live_state_test.cpp - what is on air and what becomes of the page, told event by
// event.
#include "host/live/live_state.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
#include <sstream>
#include <string>

#include "core/limits.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;
using page = live_sight::page;

// A state with a clock of its own. Each event is one word, with its page behind it where it has
// one:
//   left b     b has been shown and is not any more
//   ask b      the operator wants b          waits      the display holds it back
//   asking     it is given to the browser    loading    it has begun
//   loaded b   fail b   lost b               gone, there: the browser and its page
//   1000       so many milliseconds pass     do         one thing is done, and noted
class told_state {
public:
    void tell(const std::string& events) {
        std::istringstream words(events);
        for (std::string word; words >> word;) event(word, words);
    }
    // "phase on_air wanted error", "-" for what is empty.
    std::string told() const {
        std::string text = name_of(state.phase());
        for (const auto* part : {&state.on_air(), &state.wanted(), &state.error()}) {
            text += " " + (part->empty() ? "-" : *part);
        }
        return text;
    }

    live_state::time_point now = live_state::time_point{} + 1h;
    live_state state{"a", now};
    std::string done;

private:
    void event(const std::string& word, std::istringstream& words) {
        std::string url;
        if (word == "ask") {
            words >> url;
            state.asked(url, now);
        } else if (word == "gone") {
            state.page_is_missing(now);
        } else if (word == "there") {
            state.page_is_there();
        } else if (word == "answers") {
            state.answered();
        } else if (word == "do") {
            done += name_of_action(state.next(now));
        } else if (word.find_first_not_of("0123456789") == word.npos) {
            now += std::chrono::milliseconds(std::stol(word));
        } else {
            look(word, words);
        }
    }
    void look(const std::string& word, std::istringstream& words) {
        m_sight.waiting = word == "waits" ? 1 : 0;
        if (word == "asking") m_sight.phase = page::asked;
        if (word == "left") {
            m_sight.phase = page::none;
            words >> m_sight.url;
        }
        if (word == "loading") m_sight.phase = page::loading;
        if (word == "loaded") {
            m_sight.phase = page::loaded;
            words >> m_sight.url;
        }
        if (word == "fail") {
            m_sight.phase = page::failed;
            m_sight.error = "why";
            words >> m_sight.failed_url;
        }
        if (word == "lost") {
            m_sight.phase = page::lost;
            words >> m_sight.url;
            if (m_sight.url == "-") m_sight.url.clear();
            m_sight.error = "dead";
        }
        state.seen(m_sight, now);
    }
    std::string name_of_action(live_state::action what) const {
        switch (what) {
            case live_state::action::load:
                return "load " + state.target() + ";";
            case live_state::action::reopen:
                return "reopen;";
            case live_state::action::probe:
                return "probe;";
            default:
                return "-;";
        }
    }

    live_sight m_sight;
};

struct sequence {
    const char* name;
    const char* events;
    const char* told;
    const char* done = "";
};
void PrintTo(const sequence& c, std::ostream* out) { *out << c.name; }

#define ON_AIR "there asking loading loaded a "

constexpr sequence k_sequences[] = {
    {"AtFirst", "", "starting - a -"},
    {"TheFirstIsOnItsWay", "there asking loading", "starting - a -"},
    {"TheFirstLoads", ON_AIR, "on_air a - -"},
    {"TheFirstFails", "there asking fail a", "failed - a why"},
    {"ThenAnotherLoads", "there asking fail a ask b asking loading loaded b", "on_air b - -"},

    {"Another", ON_AIR "ask b", "loading a b -"},
    {"AnotherIsGiven", ON_AIR "ask b asking", "loading a b -"},
    {"AnotherLoads", ON_AIR "ask b asking loading loaded b", "on_air b - -"},
    {"AnotherFails", ON_AIR "ask b asking fail b", "failed a b why"},
    {"AFailureStays", ON_AIR "ask b asking fail b fail b", "failed a b why"},
    {"AfterAFailure", ON_AIR "ask b asking fail b ask c", "loading a c -"},
    {"AnotherWaits", "there asking loading ask b waits loaded x", "on_air x - -"},
    {"APageGoesElsewhere", ON_AIR "loading loaded c", "on_air c - -"},
    {"APageGoesNowhere", ON_AIR "loading fail c", "failed a c why"},
    {"ALinkOutOfAFailure", ON_AIR "ask b asking fail b loading", "loading a - -"},

    {"Lost", ON_AIR "lost a", "lost a a dead"},
    {"LostAndAtOnce", ON_AIR "lost a do", "lost a a dead", "-;"},
    {"LostAndLater", ON_AIR "lost a 200 do", "reloading a a dead", "load a;"},
    {"LostOnce", ON_AIR "lost a 200 do do", "reloading a a dead", "load a;-;"},
    {"LostAndThere", ON_AIR "lost a 200 do asking loading loaded a", "on_air a - -", "load a;"},
    {"LostAndNoMore", ON_AIR "lost a 200 do asking fail a", "failed a a why", "load a;"},
    {"LostTwice", ON_AIR "lost a 200 do asking loading lost a 200 do", "reloading a a dead",
     "load a;load a;"},
    {"LostOnItsWay", ON_AIR "ask b asking loading lost b 200 do", "reloading a b dead", "load b;"},
    {"LostBehindAnother", ON_AIR "ask b asking lost a asking 200 do", "loading a b -", "-;"},
    {"LostWithOneWaiting", ON_AIR "ask b lost a waits 200 do", "lost a b dead", "-;"},
    {"LostAndAnotherIsIgnored", ON_AIR "lost a ask b asking lost a 200 do asking loading loaded a",
     "on_air a - -", "load a;"},
    {"LostBeforeItBegan", "there asking lost - 200 do", "reloading - a dead", "load a;"},
    {"LostAndAskedForAnother", ON_AIR "lost a ask b 200 do", "loading a b -", "-;"},

    {"Closed", ON_AIR "gone", "closed a - the page has closed itself"},
    {"ClosedAndDone", ON_AIR "gone do", "closed a - the page has closed itself", "reopen;"},
    {"AnEmptyOneIsNotOnAir", ON_AIR "gone do there loading loaded empty",
     "closed a - the page has closed itself", "reopen;"},
    {"AskedAfterAClose", ON_AIR "gone do there ask b asking loading loaded b", "on_air b - -",
     "reopen;"},
    {"AskedInTheMiddleOfAClose", ON_AIR "ask b asking gone do there do loading loaded b",
     "on_air b - -", "reopen;load b;"},
    {"AskedBeforeTheCloseIsSeen", ON_AIR "ask b waits gone do there do asking loading loaded b",
     "on_air b - -", "reopen;-;"},
    {"ClosesItselfAtOnce", ON_AIR "ask b asking loading gone do there do do",
     "closed a b the page has closed itself", "reopen;-;-;"},
    {"ClosesItselfBeforeItIsSeenToBeThere", "asking loading loaded a gone do",
     "closed a - the page has closed itself", "reopen;"},
    {"ClosesItselfBetweenTwoLooks", ON_AIR "ask b asking left b gone do there do do",
     "closed a b the page has closed itself", "reopen;-;-;"},
    {"ClosesItselfUnseenAtOnce", ON_AIR "ask b asking gone do there do asking gone do there do",
     "closed a b the page has closed itself", "reopen;load b;reopen;-;"},
    {"NotThereYet", "gone do", "starting - a -", "-;"},
    {"NeverThere", "10000 gone do", "closed - a there was no page", "reopen;"},

    {"Probed", ON_AIR "1000 do do", "on_air a - -", "probe;-;"},
    {"NotProbedBeforeTheFirst", "there asking 5000 do", "starting - a -", "-;"},
    {"ProbedEachSecond", ON_AIR "1000 do answers 999 do 1 do", "on_air a - -", "probe;-;probe;"},
    {"ProbedAgainOnlyLater", ON_AIR "1000 do 9999 do 1 do", "on_air a - -", "probe;-;probe;"},
};

class Sequence : public testing::TestWithParam<sequence> {};

TEST_P(Sequence, LeadsToItsState) {
    told_state told;
    told.tell(GetParam().events);
    EXPECT_EQ(told.told(), GetParam().told);
    EXPECT_EQ(told.done, GetParam().done);
}

INSTANTIATE_TEST_SUITE_P(LiveState, Sequence, testing::ValuesIn(k_sequences),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(LiveState, ALossWithoutAWordHasItsReasonAllTheSame) {
    told_state told;
    told.tell(ON_AIR);
    live_sight sight;
    sight.phase = page::lost;
    told.state.seen(sight, told.now);
    EXPECT_EQ(told.state.error(), "the page's process has ended");
}

TEST(LiveState, APageThatDiesAtOnceIsLoadedAgainOnlySoOften) {
    told_state told;
    told.tell(ON_AIR);
    for (std::size_t i = 0; i < k_max_page_reloads; ++i) told.tell("lost a 200 do asking loading");
    EXPECT_EQ(told.state.reloads(), k_max_page_reloads);
    told.done.clear();
    told.tell("lost a 200 do 1000 do 60000 do");
    EXPECT_EQ(told.done, "-;-;-;");
    EXPECT_EQ(told.told(),
              "lost a a dead, 5 times within a minute; it is not loaded again by itself");
    told.tell("ask a asking loading loaded a lost a 200 do");
    EXPECT_EQ(told.state.reloads(), k_max_page_reloads + 1) << "the operator has acted";
}

TEST(LiveState, APageThatDiesNowAndThenIsLoadedEachTime) {
    told_state told;
    told.tell(ON_AIR);
    for (int i = 0; i < 30; ++i) told.tell("15000 lost a 200 do asking loading loaded a");
    EXPECT_EQ(told.state.reloads(), 30u);
    EXPECT_EQ(told.told(), "on_air a - -");
}

TEST(LiveState, TellsHowLongItHasBeenSo) {
    told_state told;
    told.tell(ON_AIR "500 ask b");
    const auto begin = told.now;
    told.tell("700 asking 700 loading");
    EXPECT_EQ(told.state.since(), begin);
    told.tell("700 fail b 700 fail b");
    EXPECT_EQ(told.state.since(), begin + 2100ms);
    told.tell("ask c");
    EXPECT_EQ(told.state.since(), told.now);
}

TEST(LiveState, APageThatAnswersNoProbeIsSilent) {
    told_state told;
    told.tell(ON_AIR "1000 do 2999");
    EXPECT_FALSE(told.state.is_silent(told.now));
    told.tell("1");
    EXPECT_TRUE(told.state.is_silent(told.now));
    told.tell("20000 do");
    EXPECT_TRUE(told.state.is_silent(told.now)) << "asking again is no answer";
    told.tell("answers");
    EXPECT_FALSE(told.state.is_silent(told.now));
    told.tell("1000 do 5000 loading");
    EXPECT_FALSE(told.state.is_silent(told.now)) << "the page that was asked has been left";
}

// In its process the next one does not begin.
TEST(LiveState, APageThatHangsIsSilentAlsoWhileAnotherIsAskedFor) {
    told_state told;
    told.tell(ON_AIR "1000 ask b asking do 2999 asking do");
    EXPECT_EQ(told.done, "probe;-;");
    EXPECT_FALSE(told.state.is_silent(told.now));
    told.tell("1 asking");
    EXPECT_TRUE(told.state.is_silent(told.now));
    told.tell("loading");
    EXPECT_FALSE(told.state.is_silent(told.now)) << "it has been left";
    told.tell("5000 do loaded b");
    EXPECT_EQ(told.done, "probe;-;-;") << "what loads is not asked";
    EXPECT_EQ(told.told(), "on_air b - -");
}

TEST(LiveState, WhereThereIsNoPageNoneIsAsked) {
    for (const char* events : {"fail b", "lost b", "gone"}) {
        told_state told;
        told.tell(ON_AIR "ask b asking ");
        told.tell(events);
        told.tell("ask c asking");
        told.done.clear();
        told.tell("5000 do 5000");
        EXPECT_EQ(told.done.find("probe"), std::string::npos) << events;
        EXPECT_FALSE(told.state.is_silent(told.now)) << events;
    }
}

TEST(LiveState, APageThatIsLeftBetweenTwoLooksIsNotWaitedFor) {
    told_state told;
    told.tell(ON_AIR "1000 do ask b asking loaded b 3000");
    EXPECT_FALSE(told.state.is_silent(told.now));
    told.tell("asking loaded c");
    told.tell("do asking loaded d 3000");
    EXPECT_FALSE(told.state.is_silent(told.now));
}

TEST(LiveState, ANewBrowserForAPageThatHangsBeginsWithTheOneAskedFor) {
    told_state told;
    told.tell(ON_AIR "1000 do 3000");
    ASSERT_TRUE(told.state.is_silent(told.now));
    told.state.renewed(told.now);
    told.tell("ask b left - waits gone do");
    EXPECT_EQ(told.told(), "loading a b -") << "it is on its way, and not gone";
    EXPECT_TRUE(told.state.holds_picture());
    EXPECT_FALSE(told.state.is_silent(told.now));
    told.tell("there do asking loading loaded b");
    EXPECT_EQ(told.told(), "on_air b - -");
    EXPECT_FALSE(told.state.holds_picture());
    EXPECT_EQ(told.done, "probe;-;-;");
}

TEST(LiveState, AFailureIsOneOfTheStartUntilThereIsAPage) {
    told_state told;
    EXPECT_EQ(told.state.start_failure(), "");
    told.tell("asking fail a");
    EXPECT_EQ(told.told(), "failed - a why");
    EXPECT_EQ(told.state.start_failure(), "a: why");
    told.tell("ask b asking loaded b");
    EXPECT_EQ(told.state.start_failure(), "");
    told.tell("ask c asking fail c");
    EXPECT_EQ(told.told(), "failed b c why");
    EXPECT_EQ(told.state.start_failure(), "");
}

// It shows nothing of it, not even that it failed: a download, or a status of 204.
TEST(LiveState, AFirstPageThatTheBrowserGivesUpHasFailed) {
    told_state told;
    told.tell("asking left -");
    EXPECT_EQ(told.told(), "starting - a -");
    told.state.told_of_failure("frame", "no such frame", told.now);
    EXPECT_EQ(told.told(), "starting - a -");
    told.state.told_of_failure("a", "given up", told.now);
    EXPECT_EQ(told.told(), "failed - a given up");
    EXPECT_EQ(told.state.start_failure(), "a: given up");
    told.tell("1000 left - do");
    EXPECT_EQ(told.told(), "failed - a given up") << "it stays so until another is asked for";
    told.tell("ask b asking loaded b");
    EXPECT_EQ(told.told(), "on_air b - -");
    told.tell("ask c asking");
    told.state.told_of_failure("c", "given up", told.now);
    told.tell("loaded b");
    EXPECT_EQ(told.told(), "on_air b - -") << "the browser shows what it did before";
}

TEST(LiveState, ThePictureIsHeldFromACloseUntilAnotherPageHasLoaded) {
    told_state told;
    told.tell(ON_AIR);
    EXPECT_FALSE(told.state.holds_picture());
    told.tell("gone do there loaded empty ask b asking loading 1999 loading");
    EXPECT_TRUE(told.state.holds_picture()) << "the empty page may still paint";
    told.tell("loaded b");
    EXPECT_FALSE(told.state.holds_picture());
}

TEST(LiveState, ThePictureOfAPageThatTakesLongToLoadAfterACloseIsNotHeldForEver) {
    told_state told;
    told.tell(ON_AIR "gone do there ask b asking 5000 asking loading 1999 loading");
    EXPECT_TRUE(told.state.holds_picture());
    told.tell("1 loading");
    EXPECT_FALSE(told.state.holds_picture());
}

}  // namespace
}  // namespace pennywort::host
