// browser_life_test.cpp - the life of a browser: whose step is which, and that everybody who waits
// for its end sees it.
#include "webdisplay/browser_life.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace pennywort::webdisplay {
namespace {

using step = close_step;

struct life_case {
    const char* events;  // a arrives, c close, n not asked, e ends
    life_phase want;
    step next_close;
};
void PrintTo(const life_case& c, std::ostream* out) { *out << c.events; }

constexpr life_case k_cases[] = {
    {"", life_phase::expected, step::abandon},   {"a", life_phase::there, step::ask},
    {"c", life_phase::abandoned, step::abandon}, {"ca", life_phase::abandoned, step::abandon},
    {"ac", life_phase::closing, step::join},     {"acc", life_phase::closing, step::join},
    {"acn", life_phase::there, step::ask},       {"ace", life_phase::gone, step::nothing},
    {"ae", life_phase::gone, step::nothing},     {"e", life_phase::gone, step::nothing},
    {"cae", life_phase::gone, step::nothing},    {"aea", life_phase::gone, step::nothing},
    {"acen", life_phase::gone, step::nothing},
};

class BrowserLifeTest : public testing::TestWithParam<life_case> {};

TEST_P(BrowserLifeTest, ComesToItsPhase) {
    browser_life life;
    for (const char* event = GetParam().events; *event != 0; ++event) {
        if (*event == 'a') life.arrive();
        if (*event == 'c') life.close();
        if (*event == 'n') life.not_asked();
        if (*event == 'e') life.end();
    }
    EXPECT_EQ(life.phase(), GetParam().want);
    EXPECT_EQ(life.close(), GetParam().next_close);
}
INSTANTIATE_TEST_SUITE_P(All, BrowserLifeTest, testing::ValuesIn(k_cases),
                         [](const auto& one) { return "Events" + std::string(one.param.events); });

TEST(BrowserLife, OnlyAWantedBrowserArrives) {
    browser_life wanted;
    EXPECT_TRUE(wanted.arrive());
    browser_life abandoned;
    abandoned.close();
    EXPECT_FALSE(abandoned.arrive());
}

constexpr std::uint32_t k_long_us = 60'000'000;

std::shared_ptr<zSignal> new_signal() { return std::shared_ptr<zSignal>(zSignal::Factory()); }

TEST(SharedLife, ManyWaitersSeeTheOneEnd) {
    shared_life life(new_signal());
    life.arrive();
    std::atomic<int> saw{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 8; ++i) {
        waiters.emplace_back([&] { saw += life.wait(k_long_us) ? 1 : 0; });
    }
    life.end();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(saw, 8);
}

TEST(SharedLife, WhoeverComesLateSeesTheEndToo) {
    shared_life life(new_signal());
    life.end();
    EXPECT_TRUE(life.wait(0));
    EXPECT_TRUE(life.wait(0));
    EXPECT_EQ(life.close(), step::nothing);
}

TEST(SharedLife, AWaitWithoutAnEndIsBounded) {
    shared_life life(new_signal());
    EXPECT_FALSE(life.wait(0));
}

TEST(SharedLife, OneOfManyWhoCloseAsks) {
    shared_life life(new_signal());
    life.arrive();
    std::atomic<int> asked{0};
    std::vector<std::thread> closers;
    for (int i = 0; i < 8; ++i) {
        closers.emplace_back([&] { asked += life.close() == step::ask ? 1 : 0; });
    }
    for (auto& closer : closers) closer.join();
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace pennywort::webdisplay
