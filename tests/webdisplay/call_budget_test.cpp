// call_budget_test.cpp - how many calls of a page may wait for the host, and what is told of the
// rest.
#include "childprocess/call_budget.h"

#include <gtest/gtest.h>

#include "core/limits.h"

namespace pennywort::childprocess {
namespace {

constexpr std::uint32_t k_most = 100;

class CallBudgetTest : public testing::Test {
protected:
    // How many of so many calls go out.
    std::uint32_t take(std::uint32_t calls, std::size_t bytes = 10, bool is_result = false) {
        std::uint32_t taken = 0;
        for (std::uint32_t i = 0; i < calls; ++i) taken += budget.take(bytes, is_result) ? 1 : 0;
        return taken;
    }

    call_budget budget{k_most};
};

TEST_F(CallBudgetTest, WithoutABoundEverythingGoesOut) {
    call_budget free(0);
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(free.take(k_max_waiting_call_bytes, false));
    EXPECT_FALSE(free.is_bound());
    EXPECT_FALSE(free.has_untold());
}

TEST_F(CallBudgetTest, SoManyMayWaitAndTheRestIsCounted) {
    EXPECT_EQ(take(k_most + 7), k_most);
    EXPECT_EQ(budget.take_untold(), 7u);
    EXPECT_FALSE(budget.has_untold());
}

TEST_F(CallBudgetTest, WhatIsHandledMakesRoom) {
    take(k_most);
    budget.handled(30);
    EXPECT_EQ(take(k_most), 30u);
    budget.handled(k_most);
    EXPECT_EQ(take(2 * k_most), k_most);
}

TEST_F(CallBudgetTest, MoreThanWasSentCannotBeHandled) {
    take(3);
    budget.handled(1'000'000'000);
    EXPECT_EQ(take(2 * k_most), k_most);
}

TEST_F(CallBudgetTest, TheirBytesAreBoundedToo) {
    EXPECT_EQ(take(k_most, k_max_waiting_call_bytes / 4), 4u);
    budget.handled(1);
    EXPECT_EQ(take(k_most, k_max_waiting_call_bytes / 4), 1u);
}

TEST_F(CallBudgetTest, OneThatIsLongerThanAllOfItGetsThroughAlone) {
    EXPECT_EQ(take(2, 2 * k_max_waiting_call_bytes), 1u);
    budget.handled(1);
    EXPECT_EQ(take(2, 2 * k_max_waiting_call_bytes), 1u);
}

TEST_F(CallBudgetTest, TheResultOfAScriptHasAReserve) {
    EXPECT_EQ(take(2 * k_most), k_most);
    EXPECT_EQ(take(2 * k_most, 10, true), k_most);
    EXPECT_EQ(take(1), 0u);
    budget.handled(2 * k_most);
    take(4, k_max_waiting_call_bytes / 4);
    EXPECT_EQ(take(1, 10, false), 0u);
    EXPECT_EQ(take(1, 10, true), 1u);
}

TEST_F(CallBudgetTest, TheFirstDropIsToldAndThenNotEachOfThem) {
    take(k_most);
    std::uint32_t tellings = 0;
    std::uint32_t told = 0;
    for (std::uint32_t i = 0; i < 3 * k_calls_dropped_untold; ++i) {
        take(1);
        if (!budget.is_telling_due()) continue;
        ++tellings;
        told += budget.take_untold();
    }
    EXPECT_EQ(tellings, 4u);
    EXPECT_EQ(told, 3 * k_calls_dropped_untold);
    EXPECT_FALSE(budget.is_telling_due());
}

}  // namespace
}  // namespace pennywort::childprocess
