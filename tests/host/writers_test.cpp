// tests/host/writers_test.cpp - files of frames and what is in them. Full disks and readers that
// leave: output_faults_test_linux.cpp.
#include <gtest/gtest.h>
#include <png.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "host/output/output_file.h"
#include "host/output/png_writers.h"
#include "host/output/stream_writers.h"
#include "tests/host/fake_writer.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

struct decoded {
    unsigned width = 0, height = 0;
    bool has_alpha = false;
    std::vector<std::uint8_t> bgra;
};

decoded read_png(const std::string& path) {
    decoded out;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << image.message;
    out.has_alpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    image.format = PNG_FORMAT_BGRA;
    out.width = image.width;
    out.height = image.height;
    out.bgra.resize(PNG_IMAGE_SIZE(image));
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, out.bgra.data(), 0, nullptr))
        << image.message;
    return out;
}

TEST(PngWriter, AMissingFolderIsToldBeforeAnythingBegins) {
    const temporary_folder folder;
    const auto begun = png_writer(folder.path("no/such/a.png"), true).begin();
    EXPECT_NE(begun.text().find("there is no folder"), std::string::npos) << begun.text();
}

TEST(OutputFile, ThatAFileCanBeWrittenIsFoundOutWithoutTouchingIt) {
    const temporary_folder folder;
    EXPECT_TRUE(can_be_written(folder.path("new.png")).ok());
    EXPECT_FALSE(folder.has("new.png"));
    folder.write("old.png", "old");
    EXPECT_TRUE(can_be_written(folder.path("old.png")).ok());
    EXPECT_EQ(folder.read("old.png"), "old");
}

TEST(OutputFile, AFolderInItsPlaceIsTold) {
    const temporary_folder folder;
    EXPECT_FALSE(can_be_written(folder.path()).ok());
    EXPECT_FALSE(png_writer(folder.path(), true).begin().ok());
}

TEST(OutputFile, TwoNamesOfOneFileAreKnownWhetherItIsThereOrNot) {
    const temporary_folder folder;
    folder.write("old.mov", "old");
    for (const char* name : {"old.mov", "new.mov"}) {
        EXPECT_TRUE(are_one_file(folder.path(name), folder.path(name)));
        EXPECT_TRUE(are_one_file(folder.path(name), folder.path("./") + name));
        EXPECT_TRUE(are_one_file(folder.path(name), folder.path("no/../") + name));
        EXPECT_FALSE(are_one_file(folder.path(name), folder.path("other.mov")));
    }
    EXPECT_FALSE(are_one_file(folder.path("old.mov"), folder.path("new.mov")));
}

// The file system is asked with files that are there.
TEST(OutputFile, TheCaseOfANameCountsWhereItDoesForTheFileSystem) {
    const temporary_folder folder;
    const auto path = [&folder](const char* name) { return folder.path(name); };
    folder.write("probe", "");
    folder.write("gr\u00FCn", "");
    EXPECT_EQ(are_one_file(path("new.mov"), path("NEW.mov")), folder.has("PROBE"));
    EXPECT_EQ(are_one_file(path("no/new.mov"), path("NO/New.mov")), folder.has("PROBE"));
    EXPECT_EQ(are_one_file(path("\u00FC.mov"), path("\u00DC.mov")), folder.has("gr\u00DCn"));
    EXPECT_FALSE(are_one_file(path("\u00FC.mov"), path("u.mov")));
}

TEST(PngWriter, WithoutAFrameThereIsNoFile) {
    const temporary_folder folder;
    png_writer writer(folder.path("a.png"), true);
    EXPECT_TRUE(writer.begin().ok());
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_FALSE(folder.has("a.png"));
}

TEST(PngWriter, WritesTheLastFrameWithStraightAlpha) {
    const temporary_folder folder;
    png_writer writer(folder.path("a.png"), true);
    EXPECT_TRUE(writer.show(picture_of(0xFFFFFFFF, 3, 2)).ok());
    EXPECT_TRUE(writer.show(picture_of(0x80402010, 3, 2)).ok());
    EXPECT_TRUE(writer.finish().ok());
    const auto got = read_png(folder.path("a.png"));
    EXPECT_EQ(got.width, 3u);
    EXPECT_EQ(got.height, 2u);
    EXPECT_TRUE(got.has_alpha);
    EXPECT_EQ(std::vector<std::uint8_t>(got.bgra.begin(), got.bgra.begin() + 4),
              (std::vector<std::uint8_t>{32, 64, 128, 128}));
}

TEST(PngWriter, WithoutTransparencyThereIsNoAlpha) {
    const temporary_folder folder;
    for (const auto effort : {png_effort::small_file, png_effort::fast}) {
        EXPECT_TRUE(
            write_png(folder.path("a.png"), *picture_of(0xFF402010, 5, 3), false, effort).ok());
        const auto got = read_png(folder.path("a.png"));
        EXPECT_FALSE(got.has_alpha);
        EXPECT_EQ(std::vector<std::uint8_t>(got.bgra.end() - 4, got.bgra.end()),
                  (std::vector<std::uint8_t>{16, 32, 64, 255}));
    }
}

TEST(PngSeriesWriter, AFailureIsToldByALaterFrameOrTheEnd) {
    const temporary_folder folder;
    std::filesystem::create_directory(folder.path("f2.png"));  // in the way of the second file
    std::string reason;
    png_series_writer writer(*name_pattern::parse(folder.path("f%d.png"), reason), true);
    EXPECT_TRUE(writer.begin().ok());
    bool failed = false;
    for (int i = 0; i < 40 && !failed; ++i) failed = !writer.show(picture_of(1)).ok();
    EXPECT_TRUE(failed);
    EXPECT_TRUE(std::filesystem::is_directory(folder.path("f2.png")));
}

TEST(PngSeriesWriter, NumbersItsFilesFromOneInTheirOrder) {
    const temporary_folder folder;
    std::string reason;
    png_series_writer writer(*name_pattern::parse(folder.path("f%03d.png"), reason), true);
    EXPECT_TRUE(writer.begin().ok());
    for (std::uint32_t i = 1; i <= 12; ++i)
        EXPECT_TRUE(writer.show(picture_of(0xFF000000 + i)).ok());
    EXPECT_TRUE(writer.finish().ok());
    for (std::uint32_t i = 1; i <= 12; ++i) {
        const auto name = folder.path(i < 10 ? "f00" + std::to_string(i) + ".png"
                                             : "f0" + std::to_string(i) + ".png");
        EXPECT_EQ(read_png(name).bgra[0], i);
    }
}

TEST(Y4mWriter, AFileThatCannotBeOpenedIsTold) {
    const temporary_folder folder;
    y4m_writer writer(format_of(2, 2), into_file(folder.path("no/such/a.y4m")));
    const auto begun = writer.begin();
    EXPECT_NE(begun.text().find("No such file"), std::string::npos) << begun.text();
    EXPECT_TRUE(writer.finish().ok());
}

TEST(Y4mWriter, HasAHeaderAndThreePlanesAFrame) {
    const temporary_folder folder;
    y4m_writer writer(format_of(2, 1, "59.94"), into_file(folder.path("a.y4m")));
    EXPECT_TRUE(writer.begin().ok());
    const auto white = picture_of(0xFFFFFFFF, 2, 1);
    EXPECT_TRUE(writer.show(white).ok());
    EXPECT_TRUE(writer.show(white).ok());
    EXPECT_TRUE(writer.show(picture_of(0, 2, 1)).ok());
    EXPECT_TRUE(writer.finish().ok());
    const std::string white_frame = "FRAME\n\xEB\xEB\x80\x80\x80\x80";
    EXPECT_EQ(folder.read("a.y4m"),
              "YUV4MPEG2 W2 H1 F60000:1001 Ip A1:1 C444 XCOLORRANGE=LIMITED\n" + white_frame +
                  white_frame + "FRAME\n\x10\x10\x80\x80\x80\x80");
}

TEST(RawWriter, WritesThePixelsAsTheyWerePainted) {
    const temporary_folder folder;
    raw_writer writer(into_file(folder.path("a.raw")));
    EXPECT_TRUE(writer.begin().ok());
    EXPECT_TRUE(writer.show(picture_of(0x44332211, 1, 1)).ok());
    EXPECT_TRUE(writer.show(picture_of(0x88776655, 1, 1)).ok());
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(folder.read("a.raw"), "\x11\x22\x33\x44\x55\x66\x77\x88");
}

}  // namespace
}  // namespace pennywort::host
