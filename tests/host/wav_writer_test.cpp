// tests/host/wav_writer_test.cpp - the head of a WAV file, byte by byte, and its end.
#include "host/output/wav_writer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) text.push_back(static_cast<char>(value));
    return text;
}

TEST(WavWriter, HasTheLengthsOfWhatItHolds) {
    const temporary_folder folder;
    wav_writer writer(folder.path("a.wav"));
    ASSERT_TRUE(writer.begin().ok());
    EXPECT_TRUE(writer.show(picture_of(1)).ok());
    const std::vector<float> samples{1, -1, 0.5f, 0};
    EXPECT_TRUE(writer.hear(samples).ok());
    EXPECT_TRUE(writer.hear(samples).ok());
    ASSERT_TRUE(writer.finish().ok());
    const std::string file = folder.read("a.wav");
    const std::string head =
        "RIFF" + bytes({50 + 32, 0, 0, 0}) + "WAVEfmt " + bytes({18, 0, 0, 0}) +
        bytes({3, 0, 2, 0, 0x80, 0xBB, 0, 0, 0, 0xDC, 5, 0, 8, 0, 32, 0, 0, 0}) + "fact" +
        bytes({4, 0, 0, 0, 4, 0, 0, 0}) + "data" + bytes({32, 0, 0, 0});
    ASSERT_EQ(file.size(), head.size() + 32);
    EXPECT_EQ(file.substr(0, head.size()), head);
    EXPECT_EQ(file.substr(head.size(), 4), bytes({0, 0, 0x80, 0x3F}));
}

TEST(WavWriter, AFolderThatIsNotThereIsTold) {
    const temporary_folder folder;
    wav_writer writer(folder.path("no/a.wav"));
    EXPECT_FALSE(writer.begin().ok());
    EXPECT_TRUE(writer.finish().ok());
}

}  // namespace
}  // namespace pennywort::host
