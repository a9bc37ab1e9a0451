// model_test.cpp - the part of a display that needs no browser engine: settings and queue.
#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/webdisplay/model_display.h"

namespace {

using display = released<model_display>;

zRecord settings_with(const char* key, std::int32_t value) {
    zRecord settings;
    settings.SetInt32(key, value);
    return settings;
}

zRecord page_settings(const char* url, const char* css, bool transparent) {
    zRecord settings;
    settings.SetCString("web_url", url);
    settings.SetCString("web_override_css", css);
    settings.SetBool("web_transparent", transparent);
    return settings;
}

// --- settings

struct side_case {
    const char* name;
    std::int32_t asked;
    long want;
};
void PrintTo(const side_case& c, std::ostream* out) { *out << c.name; }

class ModelSideTest : public testing::TestWithParam<side_case> {};

TEST_P(ModelSideTest, ASideBelowTwoPixelsBecomesOne) {
    const side_case& c = GetParam();
    long width = 0, height = 0;
    display wide(new model_display(settings_with("web_width", c.asked)));
    wide->GetSize(width, height);
    EXPECT_EQ(width, c.want);
    EXPECT_EQ(height, 1);

    display high(new model_display(settings_with("web_height", c.asked)));
    high->GetSize(width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, c.want);
}

INSTANTIATE_TEST_SUITE_P(
    All, ModelSideTest,
    testing::Values(side_case{"Least", std::numeric_limits<std::int32_t>::min(), 1},
                    side_case{"Negative", -5, 1}, side_case{"Zero", 0, 1}, side_case{"One", 1, 1},
                    side_case{"Two", 2, 2}, side_case{"Usual", 1920, 1920},
                    side_case{"Most", std::numeric_limits<std::int32_t>::max(),
                              std::numeric_limits<std::int32_t>::max()}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Model, WithoutSettingsItIsOnePixelOpaqueAndHasNothingToLoad) {
    display d(new model_display);
    long width = 0, height = 0;
    d->GetSize(width, height);
    EXPECT_EQ(width, 1);
    EXPECT_EQ(height, 1);
    EXPECT_FALSE(d->m_transparent);
    EXPECT_TRUE(d->m_windowless);
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_STREQ(d->get_css_override(), "");
    EXPECT_EQ(d->next_url_calls, 0);
}

TEST(Model, KeepsTheFrameRateAsItWasGiven) {
    display d(new model_display({}, 59.94));
    EXPECT_EQ(d->m_frame_rate, 59.94);
}

TEST(Model, SizesAreComparedAsTheyStandNotAsTheyAreUsed) {
    const zRecord none;
    EXPECT_FALSE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_width", 1)));
    EXPECT_FALSE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_height", 1)));
    EXPECT_TRUE(
        cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(none, settings_with("web_width", 0)));
    EXPECT_TRUE(cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(
        settings_with("web_height", -3), settings_with("web_height", -3)));
}

TEST(Model, SettingsDifferByUrlStyleSheetOrTransparency) {
    const zRecord a = page_settings("http://a/", "p{}", true);
    const auto equal = &cWebDisplayBrowser::IsWebDisplaySettingsEqual;
    EXPECT_TRUE(equal(a, page_settings("http://a/", "p{}", true)));
    EXPECT_FALSE(equal(a, page_settings("http://A/", "p{}", true)));
    EXPECT_FALSE(equal(a, page_settings("http://a/", "p{} ", true)));
    EXPECT_FALSE(equal(a, page_settings("http://a/", "p{}", false)));
}

TEST(Model, SettingsAreEqualWhateverTheSize) {
    zRecord a = page_settings("http://a/", "", false), b = page_settings("http://a/", "", false);
    a.SetInt32("web_width", 100);
    b.SetInt32("web_height", 7);
    EXPECT_TRUE(cWebDisplayBrowser::IsWebDisplaySettingsEqual(a, b));
}

TEST(Model, AnAbsentSettingEqualsItsDefault) {
    EXPECT_TRUE(cWebDisplayBrowser::IsWebDisplaySettingsEqual({}, page_settings("", "", false)));
    EXPECT_FALSE(cWebDisplayBrowser::IsWebDisplaySettingsEqual({}, page_settings("", "", true)));
}

// --- queue

TEST(Model, AnEmptyQueueReadsAsAnEmptyUrlAndStaysEmpty) {
    display d(new model_display(page_settings("", "", false)));
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_EQ(d->PopNextURL(), "");
    EXPECT_EQ(d->PopNextURL(), "");
    EXPECT_EQ(d->PeekNextURL(), "");
}

TEST(Model, TheUrlOfTheSettingsIsTheFirstOfTheQueue) {
    display d(new model_display(page_settings("http://first/", "", false)));
    EXPECT_EQ(d->next_url_calls, 0);
    d->LoadUrl("http://second/");
    d->LoadUrl("");
    EXPECT_EQ(d->next_url_calls, 2);
    EXPECT_EQ(d->PeekNextURL(), "http://first/");
    EXPECT_EQ(d->PeekNextURL(), "http://first/");
    EXPECT_EQ(d->PopNextURL(), "http://first/");
    EXPECT_EQ(d->PopNextURL(), "http://second/");
    EXPECT_EQ(d->PopNextURL(), "");
}

TEST(Model, ANullUrlIsIgnored) {
    display d(new model_display);
    d->LoadUrl(nullptr);
    EXPECT_EQ(d->PeekNextURL(), "");
    EXPECT_EQ(d->next_url_calls, 0);
}

TEST(Model, CopiesTheUrlThatItIsGiven) {
    display d(new model_display);
    std::string url = "http://a/";
    d->LoadUrl(url.c_str());
    url.assign(url.size(), 'x');
    EXPECT_EQ(d->PopNextURL(), "http://a/");
}

TEST(Model, QueuesFromManyThreadsAtOnce) {
    display d(new model_display);
    constexpr int k_threads = 4, k_each = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < k_threads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < k_each; ++n) d->LoadUrl("http://a/");
        });
    }
    for (auto& thread : threads) thread.join();
    int popped = 0;
    while (!d->PopNextURL().empty()) ++popped;
    EXPECT_EQ(popped, k_threads * k_each);
}
TEST(Model, HasNoClockOfItsHost) {
    display d(new model_display);
    EXPECT_FALSE(d->NextFrame());
}

}  // namespace
