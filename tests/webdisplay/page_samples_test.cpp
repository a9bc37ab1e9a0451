// page_samples_test.cpp - what the driver of a page says of its sound, read; and the files that it
// asks for.
#include "webdisplay/page_samples.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/limits.h"
#include "webdisplay/page_file.h"

namespace pennywort::webdisplay {
namespace {

TEST(PageSamples, AreReadWithTheirPlace) {
    // 1, 0.5, -1 and -0.5.
    const auto heard = page_samples_of("96:AACAPwAAAD8AAIC/AAAAvw==");
    ASSERT_TRUE(heard);
    EXPECT_EQ(heard->milliseconds, 2);
    ASSERT_EQ(heard->frames(), 2u);
    EXPECT_EQ(heard->left()[0], 1);
    EXPECT_EQ(heard->left()[1], 0.5f);
    EXPECT_EQ(heard->right()[0], -1);
    EXPECT_EQ(heard->right()[1], -0.5f);
}

TEST(PageSamples, AnythingElseIsNothing) {
    for (const char* text :
         {"", ":", "0:", "0",
          "x:AACAPwAAAD8=", "-48:AACAPwAAAD8=", "47:AACAPwAAAD8=", "0x:AACAPwAAAD8=", "0:AACAPw==",
          "0:AACA*wAAAD8=", "99999999999999999999:AACAPwAAAD8=", "window['thinternal films'](0)"}) {
        EXPECT_FALSE(page_samples_of(text)) << text;
    }
}

TEST(PageSamples, AsManyAsTenSecondsAreTakenAndNoMore) {
    const std::size_t frames = std::size_t(k_max_page_sound_seconds) * 48'000;
    const std::string most = "0:" + std::string(frames * 8 / 3 * 4, 'A');
    EXPECT_TRUE(page_samples_of(most));
    EXPECT_FALSE(page_samples_of(most + std::string(64, 'A')));
}

TEST(PageSamples, APositionIsNoLargerThanAScriptCanCount) {
    EXPECT_TRUE(page_samples_of("9007199254740960:AACAPwAAAD8="));
    EXPECT_FALSE(page_samples_of("9007199254741008:AACAPwAAAD8=")) << "beyond 2^53";
    EXPECT_FALSE(page_samples_of("9223372036854775776:AACAPwAAAD8="));
}

TEST(PageSamples, TwoOfOneWhileAreHeardAtOnce) {
    const page_samples one{2, {1, 0.5f}};
    const page_samples other{2, {0.25f, -0.5f}};
    EXPECT_FALSE(together({}, {}));
    EXPECT_EQ(together(one, {})->samples, one.samples);
    EXPECT_EQ(together({}, other)->samples, other.samples);
    EXPECT_EQ(together(one, other)->samples, (std::vector<float>{1.25f, 0}));
    EXPECT_EQ(together(page_samples{3, {1, 1}}, other)->samples, other.samples);
    EXPECT_EQ(together(page_samples{2, {1, 1, 1, 1}}, other)->samples, other.samples);
}

// --- files

TEST(PageFile, APlainFileIsRead) {
    const auto path = std::filesystem::path(testing::TempDir()) / "pennywort page file #1.bin";
    std::ofstream(path, std::ios::binary) << std::string("a\0\r\nb", 5);
    std::string url = "file://" + std::string(path.generic_string()[0] == '/' ? "" : "/");
    for (const char byte : path.generic_string()) {
        url += byte == ' ' ? "%20" : byte == '#' ? "%23" : std::string(1, byte);
    }
    EXPECT_EQ(bytes_of_file_url(url + "?x#t=1"), std::string("a\0\r\nb", 5));
    const std::string share = "file:///" + url.substr(std::string("file://").size());
    EXPECT_EQ(bytes_of_file_url(share), "") << "another machine's";
    std::filesystem::resize_file(path, k_max_page_file_bytes + 1);
    EXPECT_EQ(bytes_of_file_url(url), "");
    std::filesystem::remove(path);
    EXPECT_EQ(bytes_of_file_url(url), "");
}

TEST(PageFile, WhatIsNoneIsNotRead) {
    for (const char* url : {"", "file:", "file://", "file:///", "http://a/b", "file:///dev/zero",
                            "file:///no/such/file"}) {
        EXPECT_EQ(bytes_of_file_url(url), "") << url;
    }
}

}  // namespace
}  // namespace pennywort::webdisplay
