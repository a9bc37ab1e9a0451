// tests/host/picture_area_test.cpp - the part of a page that a picture shows, found with a page
// that a test plays.
#include "host/render/picture_area.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace pennywort::host {
namespace {

class fake_page : public area_port {
public:
    void ask_page(const std::string& expression,
                  std::function<void(const std::string&)> answer) override {
        questions.push_back(expression);
        const std::string text = answers.empty() ? "" : answers.front();
        if (!answers.empty()) answers.erase(answers.begin());
        answer(text);
    }
    void resize_page(long width, long height) override {
        wanted_width = width;
        wanted_height = height;
    }
    void show_unseen(std::function<void(bool)> told) override {
        ++frames;
        told(!has_failed);
    }
    std::optional<picture_size> picture_of(long width, long height) const override {
        const bool is_it = frames > frames_late && width == wanted_width && height == wanted_height;
        if (!is_it) return {};
        return picture_size{static_cast<long>(rounded(static_cast<double>(width) * scale)),
                            static_cast<long>(rounded(static_cast<double>(height) * scale))};
    }

    std::vector<std::string> answers;
    std::vector<std::string> questions;
    long wanted_width = 0, wanted_height = 0;
    int frames = 0;
    int frames_late = 0;
    double scale = 1;
    double (*rounded)(double) = std::round;  // as its browser does
    bool has_failed = false;
};

TEST(PictureArea, APageThatFitsIsShownAsItIs) {
    fake_page page;
    page.answers = {"0 0 640 360"};
    area_finder finder(page, {"", 640, 360, 1});
    finder.begin();
    EXPECT_TRUE(finder.is_over());
    EXPECT_EQ(finder.failure(), "");
    EXPECT_EQ(finder.area(), (pixel_area{0, 0, 640, 360}));
    EXPECT_EQ(page.frames, 0);
}

TEST(PictureArea, ALongPageGetsItsLengthOnceEvenIfItGrowsWithIt) {
    fake_page page;
    page.answers = {"0 0 640 5000", "0 0 640 9000"};
    page.frames_late = 3;
    page.scale = 2;
    area_finder finder(page, {"", 640, 360, 2});
    finder.begin();
    EXPECT_EQ(page.wanted_width, 640);
    EXPECT_EQ(page.wanted_height, 5000);
    EXPECT_EQ(page.frames, 4);
    EXPECT_EQ(finder.area(), (pixel_area{0, 0, 1280, 10000}));
    EXPECT_EQ(finder.note(),
              "--full-page: it was 640x5000 and is 640x9000 in the larger window that its picture "
              "needs, since its sizes follow that (as vh does); the picture ends at 640x5000");
}

TEST(PictureArea, AnElementThatFollowsTheWindowIsTold) {
    fake_page page;
    page.answers = {"10 1000 100 50", "10 1000 100 20"};
    area_finder finder(page, {"#score", 640, 360, 1});
    finder.begin();
    EXPECT_EQ(finder.area(), (pixel_area{10, 1000, 100, 20}));
    EXPECT_EQ(finder.note(),
              "--element #score: it was 100x50 and is 100x20 in the larger window that its picture "
              "needs, since its sizes follow that (as vh does)");
}

TEST(PictureArea, AnElementThatTheWindowMovesOutIsToldAsThat) {
    fake_page page;
    page.answers = {"0 360 640 360", "0 720 640 720"};
    area_finder finder(page, {"#two", 640, 360, 1});
    finder.begin();
    EXPECT_NE(finder.failure().find("--element #two: it was 640x360 and is 640x720"),
              std::string::npos)
        << finder.failure();
}

TEST(PictureArea, AnElementIsWhereItIsInTheLargerPage) {
    fake_page page;
    page.answers = {"10 1000 100 50", "12.25 990 100.5 50"};
    area_finder finder(page, {"#score", 640, 360, 1});
    finder.begin();
    EXPECT_EQ(page.wanted_width, 640);
    EXPECT_EQ(page.wanted_height, 1050);
    EXPECT_EQ(finder.area(), (pixel_area{12, 990, 101, 50}));
    EXPECT_EQ(finder.note(), "");
    EXPECT_NE(page.questions[0].find("querySelector(\"#score\")"), std::string::npos);
}

TEST(PictureArea, WhatLiesOutsideThePageIsLeftOut) {
    EXPECT_EQ(pixels_of({-10, -20, 100, 100}, {640, 360}, 1), (pixel_area{0, 0, 90, 80}));
    EXPECT_EQ(pixels_of({600, 300, 100, 100}, {960, 540}, 1.5), (pixel_area{900, 450, 60, 90}));
}

struct fraction_case {
    page_area area;
    double scale;
    picture_size picture;  // of the whole page
    pixel_area pixels;
};

// A scale may leave the page's last pixel in part; the browser drops it or paints it. None of its
// pictures is to be smaller than the area.
TEST(PictureArea, OfAScaleThatLeavesPartsOfPixelsIsThatOfThePicture) {
    constexpr fraction_case k_cases[] = {
        {{0, 0, 640, 1001}, 1.25, {800, 1251}, {0, 0, 800, 1251}},
        {{0, 0, 640, 1001}, 1.25, {800, 1252}, {0, 0, 800, 1252}},
        {{0, 0, 333, 7}, 0.25, {83, 1}, {0, 0, 83, 1}},
        {{10, 1000, 101, 1}, 1.25, {800, 1251}, {12, 1250, 127, 1}},
        {{10, 1000, 101, 1}, 1.25, {800, 1252}, {12, 1250, 127, 2}},
        // 11.000000000000002, 109.99999999999999 and the like are whole.
        {{10, 10, 100, 100}, 1.1, {704, 396}, {11, 11, 110, 110}},
        {{30, 30, 70, 70}, 1.1, {704, 396}, {33, 33, 77, 77}},
        {{0.015625, 0, 10, 10}, 8, {512, 288}, {0, 0, 81, 80}},
    };
    for (const auto& one : k_cases) {
        const auto found = pixels_of(one.area, one.picture, one.scale);
        EXPECT_EQ(found, one.pixels) << one.scale << ": " << found.x << " " << found.y << " "
                                     << found.width << " " << found.height;
    }
}

TEST(PictureArea, IsFoundHoweverTheBrowserRoundsItsPicture) {
    for (double (*rounded)(double) :
         {static_cast<double (*)(double)>(std::floor), static_cast<double (*)(double)>(std::round),
          static_cast<double (*)(double)>(std::ceil)}) {
        fake_page page;
        page.scale = 1.25;
        page.rounded = rounded;
        page.answers = {"0 0 640 1001", "0 0 640 1001"};
        area_finder all(page, {"", 640, 360, 1.25});
        all.begin();
        EXPECT_EQ(all.area(), (pixel_area{0, 0, 800, static_cast<long>(rounded(1251.25))}));
        page.frames = 0;
        page.answers = {"0 981 20 20", "0 981 20 20"};
        area_finder element(page, {"#last", 640, 360, 1.25});
        element.begin();
        EXPECT_EQ(element.area(),
                  (pixel_area{0, 1226, 25, static_cast<long>(rounded(1251.25)) - 1226}));
    }
}

struct failing_case {
    const char* answer;
    const char* failure;  // a part of it
};

TEST(PictureArea, WhyThereIsNoneIsSaid) {
    constexpr failing_case k_cases[] = {
        {"none", "the page has no such element"},
        {"", "that is no selector"},
        {"1 2 3", "that is no selector"},
        {"1 2 3 4 5", "that is no selector"},
        {"nan nan nan nan", "that is no selector"},
        {"0 0 0 10", "no area"},
        {"0 -100 10 50", "no area"},
        {"0 0 100 16385", "it would be 100x16385 pixels"},
        {"1e300 0 1 1", "pixels"},
    };
    for (const auto& one : k_cases) {
        fake_page page;
        page.answers = {one.answer};
        area_finder finder(page, {"#x", 640, 360, 1});
        finder.begin();
        EXPECT_TRUE(finder.is_over()) << one.answer;
        EXPECT_NE(finder.failure().find(one.failure), std::string::npos)
            << one.answer << ": " << finder.failure();
    }
}

TEST(PictureArea, APageThatDoesNotFollowIsGivenUp) {
    fake_page page;
    page.answers = {"0 0 640 5000"};
    page.frames_late = 1'000'000;
    area_finder late(page, {"", 640, 360, 1});
    late.begin();
    EXPECT_NE(late.failure().find("does not take the size"), std::string::npos);
    page = {};
    page.answers = {"0 0 640 5000"};
    page.has_failed = true;
    area_finder failing(page, {"", 640, 360, 1});
    failing.begin();
    EXPECT_EQ(page.frames, 1);
    EXPECT_FALSE(failing.failure().empty());
}

TEST(PictureArea, ASelectorIsQuotedAsAText) {
    EXPECT_NE(area_question("a[b=\"c\"]").find(R"(querySelector("a[b=\"c\"]"))"),
              std::string::npos);
}

}  // namespace
}  // namespace pennywort::host
