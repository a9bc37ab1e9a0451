// tests/host/frame_pacer_test.cpp - which picture goes to which tick, by tables of times.
#include "host/render/frame_pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;
using time_point = frame_pacer::time_point;

constexpr auto k_interval = 20ms;
constexpr int k_lag = 3;
const time_point k_start = time_point() + 1000s;

// Tick n is sent 20 n ms after the start. Pictures are named by letters in the order they come.
std::string play(const std::vector<int>& arrivals, int ticks, std::string* left_out = nullptr) {
    frame_pacer pacer(k_interval, k_lag);
    std::vector<picture_ptr> pictures;
    std::string shown;
    std::size_t next = 0;
    std::uint64_t left = 0;
    for (int n = 0; n < ticks + k_lag; ++n) {
        const auto at = k_start + n * k_interval;
        for (; next < arrivals.size() && k_start + arrivals[next] * 1ms < at; ++next) {
            pictures.push_back(std::make_shared<const picture>(1, 1));
            pacer.picture_came(k_start + arrivals[next] * 1ms, pictures.back());
        }
        if (const auto result = pacer.tick_sent(at)) {
            EXPECT_EQ(result->tick, shown.size());
            const auto found = std::find(pictures.begin(), pictures.end(), result->shown);
            shown += result->fresh ? static_cast<char>('a' + (found - pictures.begin())) : '-';
            left += result->left_out;
        }
    }
    if (left_out) *left_out = std::to_string(left);
    return shown;
}

struct pace_case {
    const char* name;
    std::vector<int> arrivals;  // in ms
    const char* shown;          // per tick a picture, or - for none
    const char* left_out;
};
void PrintTo(const pace_case& c, std::ostream* out) { *out << c.name; }

const pace_case k_pace_cases[] = {
    {"NoPicture", {}, "------", "0"},
    {"EveryTickInTime", {8, 28, 48, 68, 88, 108}, "abcdef", "0"},
    // It came after the next tick was sent, and is its own tick's all the same.
    {"OneLatePicture", {8, 28, 61, 68, 88, 108}, "abcdef", "0"},
    {"TwoLatePicturesInARow", {8, 28, 61, 81, 88, 108}, "abcdef", "0"},
    {"OnTheEdgeOfTheNextTick", {8, 28, 59, 81, 99, 108}, "abcdef", "0"},
    // The tick after it has its picture in time: this one has none, and nothing moves.
    {"AMissingPicture", {8, 28, 68, 88, 108}, "ab-cde", "0"},
    {"TwoMissingPictures", {8, 68, 108}, "a--b-c", "0"},
    {"HalfTheRate", {8, 48, 88}, "a-b-c-", "0"},
    {"OneChangeOfAStillPage", {88}, "----a-", "0"},
    {"TwoPicturesOfOneTick", {8, 28, 33, 48, 68, 88, 108}, "acdefg", "1"},
    // Every picture takes longer than a tick: no matter which tick it is given, none is lost.
    {"AlwaysLate", {28, 48, 68, 88, 108, 128}, "-abcde", "0"},
    {"LateByMoreThanWeWait", {8, 28, 85, 88, 108}, "ab-cde", "0"},
};

class FramePacerTest : public testing::TestWithParam<pace_case> {};

TEST_P(FramePacerTest, GivesEachPictureItsTick) {
    std::string left_out;
    EXPECT_EQ(play(GetParam().arrivals, 6, &left_out), GetParam().shown);
    EXPECT_EQ(left_out, GetParam().left_out);
}

INSTANTIATE_TEST_SUITE_P(All, FramePacerTest, testing::ValuesIn(k_pace_cases),
                         [](const auto& one) { return std::string(one.param.name); });

// A page that keeps up with a time from tick to picture that wanders about the length of a tick:
// no frame may be doubled and none left out.
TEST(FramePacer, ATimeAboutAsLongAsATickDoublesNothing) {
    std::vector<int> arrivals;
    const int wander[] = {17, 19, 22, 18, 23, 21, 16, 19, 20, 22};
    for (int n = 0; n < 300; ++n) arrivals.push_back(n * 20 + wander[n % 10]);
    std::string left_out;
    const std::string shown = play(arrivals, 300, &left_out);
    EXPECT_EQ(left_out, "0");
    EXPECT_LE(std::count(shown.begin(), shown.end(), '-'), 1);
}

TEST(FramePacer, PicturesBeforeTheFirstTickAreNobodys) {
    frame_pacer pacer(k_interval, 2);
    pacer.picture_came(k_start, std::make_shared<const picture>(1, 1));
    pacer.tick_sent(k_start + 1ms);
    EXPECT_FALSE(pacer.tick_sent(k_start + 21ms));
    const auto result = pacer.tick_sent(k_start + 41ms);
    ASSERT_TRUE(result);
    EXPECT_FALSE(result->fresh);
}

TEST(FramePacer, ALostPictureKeepsItsTick) {
    frame_pacer pacer(k_interval, 2);
    pacer.tick_sent(k_start);
    pacer.picture_came(k_start + 5ms, nullptr);
    pacer.tick_sent(k_start + 20ms);
    const auto result = pacer.tick_sent(k_start + 40ms);
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->fresh);
    EXPECT_EQ(result->shown, nullptr);
}

// The machine stood still for three ticks: they are all sent at once, and the picture that follows
// is the answer to the last of them.
TEST(FramePacer, OfTicksSentAtOnceTheLastGetsThePicture) {
    frame_pacer pacer(k_interval, 2);
    std::string shown;
    const auto tick = [&](time_point at) {
        if (const auto result = pacer.tick_sent(at)) shown += result->fresh ? 'x' : '-';
    };
    tick(k_start);
    pacer.picture_came(k_start + 8ms, nullptr);
    for (int i = 0; i < 3; ++i) tick(k_start + 80ms);
    pacer.picture_came(k_start + 88ms, nullptr);
    for (int i = 0; i < 2; ++i) tick(k_start + 100ms + i * k_interval);
    EXPECT_EQ(shown, "x--x");
}

TEST(FramePacer, HighRatesWaitMoreTicks) {
    EXPECT_EQ(frame_pacer::lag_for(1s), 3u);
    EXPECT_EQ(frame_pacer::lag_for(20ms), 3u);
    EXPECT_EQ(frame_pacer::lag_for(16683333ns), 4u);
    EXPECT_EQ(frame_pacer::lag_for(4166666ns), 15u);
}

// Pictures that take 25 ms at 240 frames a second are six ticks late and in order.
TEST(FramePacer, ManyTicksMayBeUnderWay) {
    const auto interval = 4166us;
    frame_pacer pacer(interval, frame_pacer::lag_for(interval));
    int fresh = 0;
    int came = 0;
    for (int n = 0; n < 240; ++n) {
        const auto at = k_start + n * interval;
        for (; k_start + came * interval + 25ms < at; ++came) {
            pacer.picture_came(k_start + came * interval + 25ms, nullptr);
        }
        const auto result = pacer.tick_sent(at);
        if (result && result->tick >= 6) fresh += result->fresh;
        EXPECT_EQ(result ? result->left_out : 0u, 0u);
    }
    EXPECT_EQ(fresh, 240 - 15 - 6);
}

}  // namespace
}  // namespace pennywort::host
