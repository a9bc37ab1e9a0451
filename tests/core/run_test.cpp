// run_test.cpp - core/run and core/outcome.h.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "core/outcome.h"
#include "core/run/clock.h"
#include "core/run/deadline.h"
#include "core/run/environment.h"
#include "core/run/folders.h"
#include "core/run/guarded.h"
#include "tests/support/collected_traces.h"
#include "tests/support/fake_clock.h"

namespace pennywort {
namespace {

using namespace std::chrono_literals;
using run::deadline;
using tests::collected_traces;
using tests::fake_clock;

TEST(Clock, OfTheSystemNeverGoesBack) {
    const auto& clock = run::monotonic_clock::system();
    auto last = clock.now();
    for (int i = 0; i < 1000; ++i) {
        const auto next = clock.now();
        ASSERT_GE(next, last);
        last = next;
    }
}

TEST(Deadline, PassesAtItsEnd) {
    fake_clock clock;
    const deadline end(10ms, clock);
    EXPECT_EQ(end.left(), 10ms);
    clock.advance(10ms - 1ns);
    EXPECT_FALSE(end.has_passed());
    clock.advance(1ns);
    EXPECT_TRUE(end.has_passed());
    clock.advance(1h);
    EXPECT_EQ(end.left(), 0ns);
}

TEST(Deadline, RoundsUpWhatIsLeft) {
    fake_clock clock;
    const deadline end(2ms, clock);
    EXPECT_EQ(end.left_ms(), 2);
    clock.advance(1ns);
    EXPECT_EQ(end.left_ms(), 2);
    EXPECT_EQ(end.left_us(), 2000);
    clock.advance(2ms - 2ns);
    EXPECT_EQ(end.left_ms(), 1);
    EXPECT_EQ(end.left_us(), 1);
    clock.advance(1ns);
    EXPECT_EQ(end.left_ms(), 0);
}

TEST(Deadline, InThePastHasPassed) {
    fake_clock clock;
    EXPECT_TRUE(deadline(0ns, clock).has_passed());
    EXPECT_TRUE(deadline(std::chrono::nanoseconds::min(), clock).has_passed());
}

TEST(Deadline, TooFarNeverPasses) {
    fake_clock clock;
    for (const deadline& end :
         {deadline::never(clock), deadline(std::chrono::nanoseconds::max() - 1ns, clock)}) {
        EXPECT_EQ(end.left(), std::chrono::nanoseconds::max());
        EXPECT_EQ(end.left_ms(), std::numeric_limits<std::int32_t>::max());
        EXPECT_FALSE(end.has_passed());
    }
    clock.advance(1h);
    EXPECT_FALSE(deadline::never(clock).has_passed());
}

TEST(Guarded, TracesWhatWasThrownBehindTheClass) {
    const collected_traces traced;
    EXPECT_FALSE(run::guarded("cThing", "a handler", [] { throw std::runtime_error("no"); }));
    EXPECT_FALSE(run::guarded("cThing", "a handler", [] { throw 1; }));
    EXPECT_EQ(run::guarded_or(7, "cThing", "a body", []() -> int { throw std::bad_alloc(); }), 7);
    EXPECT_EQ(traced.text(),
              "cThing: a handler threw: no\ncThing: a handler threw\n"
              "cThing: a body threw: std::bad_alloc\n");
}

TEST(Guarded, ReturnsWhatTheCodeReturns) {
    const collected_traces traced;
    EXPECT_TRUE(run::guarded("cThing", "nothing", [] {}));
    EXPECT_EQ(run::guarded_or(7, "cThing", "a sum", [] { return 3; }), 3);
    EXPECT_EQ(traced.text(), "");
}

TEST(Outcome, HoldsAValueThatOnlyMoves) {
    outcome<std::unique_ptr<int>> made(std::make_unique<int>(5));
    ASSERT_TRUE(made);
    EXPECT_EQ(made.status(), k_ok);
    EXPECT_EQ(made.text(), "");
    EXPECT_EQ(**made.operator->(), 5);
    const std::unique_ptr<int> taken = std::move(made).value();
    EXPECT_EQ(*taken, 5);
}

TEST(Outcome, AFailurePassesThroughOtherTypes) {
    const auto inner = []() -> outcome<int> { return failure{-21313, "no route"}; };
    const auto outer = [&]() -> outcome<std::string> {
        auto found = inner();
        if (!found) return std::move(found).why();
        return std::to_string(found.value());
    };
    const auto result = outer();
    EXPECT_FALSE(result);
    EXPECT_EQ(result.status(), -21313);
    EXPECT_EQ(result.text(), "no route");
    EXPECT_THROW((void)result.value(), std::bad_optional_access);
}

TEST(Environment, HasWhatIsThere) {
    const collected_traces traces;
    EXPECT_NE(run::environment_variable("PATH"), "");
    EXPECT_EQ(run::environment_variable("PENNYWORT_NO_SUCH_VARIABLE"), "");
    EXPECT_EQ(traces.text(), "") << "that there is none is no failure";
}

TEST(Folders, TheProgramsHoldsTheProgram) {
    const auto names = run::names_in(run::program_folder());
    EXPECT_TRUE(std::any_of(names.begin(), names.end(),
                            [](const std::string& name) { return name.starts_with("core_test"); }));
    const auto is_the_folder_itself = [](const std::string& name) {
        return name == "." || name == "..";
    };
    EXPECT_TRUE(std::none_of(names.begin(), names.end(), is_the_folder_itself));
}

TEST(Folders, ThatAreMissingHoldNothing) {
    const collected_traces traces;
    EXPECT_TRUE(run::names_in(run::program_folder() + "/no such folder").empty());
    EXPECT_EQ(traces.text(), "") << "it is the caller's to tell";
}

TEST(Outcome, WithoutAValue) {
    EXPECT_TRUE(outcome<>());
    EXPECT_EQ(outcome<>().status(), k_ok);
    const outcome<> failed = failure{k_failed, "full"};
    EXPECT_FALSE(failed);
    EXPECT_EQ(failed.status(), k_failed);
    EXPECT_EQ(failed.text(), "full");
}

TEST(Outcome, AFailureIsNeverOk) {
    EXPECT_EQ(outcome<int>(failure{k_ok, ""}).status(), k_failed);
    EXPECT_EQ(outcome<>(failure{k_ok, ""}).status(), k_failed);
}

}  // namespace
}  // namespace pennywort
