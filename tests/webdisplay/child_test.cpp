// child_test.cpp - the helper process's part of the bridge: what a page's call of
// window.hostApp.execute sends to the host.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "childprocess/page_bridge.h"
#include "tests/fakes/fake_cef.h"
#include "tests/webdisplay/test_process.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/page_scripts.h"

namespace {

namespace cef = pennywort::cef;
using pennywort::childprocess::child_app;

using namespace std::string_literals;
using values = std::vector<fake_cef_value>;

class ChildTest : public testing::Test {
protected:
    void SetUp() override {
        const auto loaded = cef::load({FAKE_RUNTIME_FOLDER});
        ASSERT_TRUE(loaded) << loaded.text();
    }
    void TearDown() override {
        EXPECT_EQ(fake().violations(), std::vector<std::string>{});
        EXPECT_EQ(fake().leaks(), "");
        EXPECT_EQ(fake().held(), "");
    }
    static fake_cef& fake() { return *fake_cef_control(); }

    // Runs a renderer process whose page makes these calls.
    static int run(std::vector<fake_cef_page_call> calls, bool world_is_ending = false) {
        fake().calls_of_helper(std::move(calls), world_is_ending);
        char name[] = "child", type[] = "--type=renderer";
        char* arguments[] = {name, type, nullptr};
        test_process::use_arguments({name, type});
        const cef::own<child_app> app(new child_app);
        return cef::run_helper(2, arguments, app->counted_app());
    }
};

TEST_F(ChildTest, WithoutATypeItIsNoHelper) {
    char name[] = "child";
    char* arguments[] = {name, nullptr};
    const cef::own<child_app> app(new child_app);
    EXPECT_EQ(cef::run_helper(1, arguments, app->counted_app()), -1);
}

TEST_F(ChildTest, APageThatCallsNothingSendsNothing) {
    EXPECT_EQ(run({}), 0);
    EXPECT_TRUE(fake().sent().empty());
}

TEST_F(ChildTest, AWorldThatIsEndingGetsNoBridgeAndNoHarm) {
    EXPECT_EQ(run({}, true), 0);
    EXPECT_TRUE(fake().sent().empty());
}

TEST_F(ChildTest, ACallBecomesOneMessageToTheHost) {
    EXPECT_EQ(run({{{u"command"s, u"argument"s}}}), 0);
    ASSERT_EQ(fake().sent().size(), 1u);
    EXPECT_EQ(fake().sent()[0].name, "execute");
    EXPECT_TRUE(fake().sent()[0].to_browser);
    EXPECT_EQ(fake().sent()[0].arguments, (values{u"command"s, u"argument"s}));
}

// Without a bound a call is what it always was, to the last argument.
TEST_F(ChildTest, WhereCallsAreBoundedEachAsksForItsEndAndTheFirstDropIsTold) {
    fake().bound_of_helper(2);
    EXPECT_EQ(run({{{u"a"s, u"1"s}}, {{u"a"s, u"2"s}}, {{u"a"s, u"3"s}}, {{u"a"s, u"4"s}}}), 0);
    ASSERT_EQ(fake().sent().size(), 3u);
    EXPECT_EQ(fake().sent()[0].arguments, (values{u"a"s, u"1"s, true}));
    EXPECT_EQ(fake().sent()[1].arguments, (values{u"a"s, u"2"s, true}));
    EXPECT_EQ(fake().sent()[2].name, "dropped");
    EXPECT_EQ(fake().sent()[2].arguments, (values{1}));
}

TEST_F(ChildTest, APageThatMayNotPrintIsToldBeforeItsOwnScripts) {
    EXPECT_EQ(run({}), 0);
    ASSERT_EQ(fake().evaluated().size(), 1u) << "only the bridge";
    fake().refuse_printing_of_helper();
    EXPECT_EQ(run({{{u"command"s, u"argument"s}}}), 0);
    const auto scripts = fake().evaluated();
    ASSERT_EQ(scripts.size(), 3u);
    EXPECT_EQ(scripts[2], pennywort::webdisplay::page_scripts::k_no_printing);
    ASSERT_EQ(fake().sent().size(), 1u);
    EXPECT_EQ(fake().sent()[0].arguments, (values{u"command"s, u"argument"s}));
}

// What becomes of the browsers in a process, and what the page of the first one may do.
struct process_case {
    const char* name;
    std::vector<fake_cef_helper_event> events;
    bool is_bound;  // and must not print
};
void PrintTo(const process_case& c, std::ostream* out) { *out << c.name; }

const process_case k_processes[] = {
    {"ANeighbourWithoutTerms",
     {{.max_waiting_calls = 1, .refuses_printing = true}, {.browser = 2, .is_told = false}},
     true},
    {"ANeighbourWithTerms",
     {{.is_told = false}, {.browser = 2, .max_waiting_calls = 1, .refuses_printing = true}},
     false},
    {"ANeighbourWithOthers",
     {{.max_waiting_calls = 1, .refuses_printing = true}, {.browser = 2, .max_waiting_calls = 9}},
     true},
    {"ANeighbourThatHasLeft",
     {{.max_waiting_calls = 1, .refuses_printing = true},
      {.browser = 2, .max_waiting_calls = 9},
      {.browser = 2, .is_destroyed = true}},
     true},
    {"ItCameAgainBeforeItLeft",
     {{.max_waiting_calls = 1, .refuses_printing = true},
      {.max_waiting_calls = 1, .refuses_printing = true},
      {.is_destroyed = true}},
     true},
    {"ItLeftAndCameWithoutTerms",
     {{.max_waiting_calls = 1, .refuses_printing = true},
      {.is_destroyed = true},
      {.is_told = false}},
     false},
};

class SharedProcessTest : public ChildTest, public testing::WithParamInterface<process_case> {};

TEST_P(SharedProcessTest, EachPageHasTheTermsOfItsOwnDisplay) {
    fake().browsers_of_helper(GetParam().events);
    EXPECT_EQ(run({{{u"a"s, u"1"s}}, {{u"a"s, u"2"s}}}), 0);
    const auto scripts = fake().evaluated();
    const auto refusals = std::count(scripts.begin(), scripts.end(),
                                     pennywort::webdisplay::page_scripts::k_no_printing);
    EXPECT_EQ(refusals, GetParam().is_bound ? 1 : 0);
    ASSERT_EQ(fake().sent().size(), 2u);
    EXPECT_EQ(fake().sent()[1].name, GetParam().is_bound ? "dropped" : "execute");
}
INSTANTIATE_TEST_SUITE_P(All, SharedProcessTest, testing::ValuesIn(k_processes),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(ChildTest, AnyTextArrivesUnitByUnit) {
    const std::u16string odd = u"it's \"\0\n"s + char16_t{0xD83D} + u"\u65E5";
    run({{{odd, odd}}});
    ASSERT_EQ(fake().sent().size(), 1u);
    EXPECT_EQ(fake().sent()[0].arguments, (values{odd, odd}));
}

TEST_F(ChildTest, WhatIsNoTextArrivesAsItsText) {
    run({{{42, 1.5}}, {{true, fake_cef_object{u"its own"}}}, {{u"empty"s, u""s}}});
    ASSERT_EQ(fake().sent().size(), 3u);
    EXPECT_EQ(fake().sent()[0].arguments, (values{u"42"s, u"1.5"s}));
    EXPECT_EQ(fake().sent()[1].arguments, (values{u"true"s, u"its own"s}));
    EXPECT_EQ(fake().sent()[2].arguments, (values{u"empty"s, u""s}));
}

TEST_F(ChildTest, ManyCallsLeaveNothingBehind) {
    std::vector<fake_cef_page_call> calls(10000, {{u"command"s, u"argument"s}});
    run(std::move(calls));
    EXPECT_EQ(fake().sent().size(), 10000u);
}

}  // namespace
