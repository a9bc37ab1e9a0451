// file_test.cpp - zFileStream, zFSPath and zDirectory.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "loam/buffer.h"
#include "loam/file_stream.h"
#include "loam/id_generator.h"
#include "loam/path.h"
#include "tests/support/collected_traces.h"

namespace {

namespace fs = std::filesystem;

class FileTest : public testing::Test {
protected:
    void SetUp() override {
        zString id;
        m_folder =
            fs::temp_directory_path() / (std::string("loam-") + zIDGenerator::GenerateUUID(id));
        fs::create_directories(m_folder);
    }
    void TearDown() override { fs::remove_all(m_folder); }

    std::string path(const char* name) const { return (m_folder / name).string(); }
    std::string content(const char* name) const {
        std::ifstream in(m_folder / name, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path m_folder;
};

TEST_F(FileTest, WhatIsNotThereCannotBeReadOrRemoved) {
    zFileStream file(path("none").c_str(), zFileStream::k_read, true);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_LT(file.Open(), 0);
    EXPECT_LT(file.Write("x", 1, nullptr), 0);
    EXPECT_LT(file.Flush(), 0);
    EXPECT_EQ(file.Position(), -1);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_LT(zFileStream::RemoveFile(path("none").c_str()), 0);
    EXPECT_LT(zFileStream::RemoveFile(m_folder.string().c_str()), 0);
    EXPECT_LT(zFileStream::RemoveFile(nullptr), 0);
}

TEST_F(FileTest, AFolderOrAnUnknownModeCannotBeOpened) {
    zFileStream folder(m_folder.string().c_str(), zFileStream::k_create, false);
    EXPECT_LT(folder.Open(), 0);
    zFileStream odd(path("f").c_str(), 77, true);
    EXPECT_LT(odd.Open(), 0);
    EXPECT_FALSE(fs::exists(path("f")));
}

TEST_F(FileTest, ModeTwoCreatesOrCutsToNothing) {
    for (const char* text : {"a longer first text", "short"}) {
        zFileStream file(path("f").c_str(), 2, true);
        ASSERT_TRUE(file.IsOpen());
        std::uint32_t written = 0;
        const auto length = static_cast<std::uint32_t>(std::string(text).size());
        EXPECT_EQ(file.Write(text, length, &written), 0);
        EXPECT_EQ(written, length);
        EXPECT_EQ(content("f"), text) << "not with the system yet";
        char byte = 0;
        EXPECT_LT(file.Read(&byte, 1, nullptr), 0) << "write only";
        EXPECT_EQ(file.Close(), 0);
        EXPECT_EQ(file.Close(), 0);
    }
}

TEST_F(FileTest, AppendingGoesToTheEndWhereverItStands) {
    for (int i = 0; i < 2; ++i) {
        zFileStream file(path("f").c_str(), zFileStream::k_append, true);
        EXPECT_EQ(file.Write("ab", 2, nullptr), 0);
        EXPECT_EQ(file.Seek(0, zFileStream::k_from_start), 0);
        EXPECT_EQ(file.Write("cd", 2, nullptr), 0);
    }
    EXPECT_EQ(content("f"), "abcdabcd");
}

TEST_F(FileTest, SeeksAndReadsUpToTheEnd) {
    std::ofstream(path("f"), std::ios::binary) << "0123456789";
    zFileStream file(path("f").c_str(), zFileStream::k_read_write, true);
    char bytes[16] = {};
    std::uint32_t received = 0;
    EXPECT_EQ(file.Seek(-3, zFileStream::k_from_end), 0);
    EXPECT_EQ(file.Position(), 7);
    EXPECT_EQ(file.Read(bytes, sizeof bytes, &received), 0);
    EXPECT_EQ(std::string(bytes, received), "789");
    EXPECT_EQ(file.Read(bytes, sizeof bytes, &received), 0) << "the end is no failure";
    EXPECT_EQ(received, 0u);
    EXPECT_LT(file.Seek(-11, zFileStream::k_from_here), 0);
    EXPECT_EQ(file.Position(), 10) << "moved by a failed seek";
    EXPECT_LT(file.Seek(0, 9), 0);
    EXPECT_EQ(file.Seek(4, zFileStream::k_from_start), 0);
    zBuffer rest(3, 0);
    EXPECT_EQ(file.ReadAll(rest), 0);
    EXPECT_EQ(std::string(rest.Data(), rest.Length()), "456789");
}

TEST(Path, GoesUpToItsRootAndNoFurther) {
    zFSPath path("/usr/lib//");
    EXPECT_STREQ(path.GoParent(), "/usr");
    EXPECT_STREQ(path.GoParent(), "/");
    EXPECT_STREQ(path.GoParent(), "/");
    zFSPath relative("name");
    EXPECT_STREQ(relative.GoParent(), "");
    EXPECT_STREQ(relative.GoParent(), "");
    EXPECT_STREQ(zFSPath(nullptr).CString(), "");
}

TEST(Path, GoesUpByItsBytesWhateverTheyAre) {
    zFSPath path("/a/\xff\xfe/b");
    EXPECT_STREQ(path.GoParent(), "/a/\xff\xfe");
    EXPECT_STREQ(path.GoParent(), "/a");
    EXPECT_STREQ(zFSPath("").GoParent(), "");
    EXPECT_STREQ(zFSPath("a//b///").GoParent(), "a");
    EXPECT_STREQ(zFSPath("../..").GoParent(), "..");
}

TEST(Path, NeverDoublesASeparator) {
    const std::string separator(1, static_cast<char>(std::filesystem::path::preferred_separator));
    EXPECT_EQ(zFSPath("/a/").GoChild("/b"), "/a" + separator + "b");
    EXPECT_EQ(zFSPath("/a").GoChild("b/c"), "/a" + separator + "b/c");
    EXPECT_STREQ(zFSPath("/").GoChild("b"), "/b");
    EXPECT_STREQ(zFSPath("").GoChild("b"), "b");
    EXPECT_STREQ(zFSPath("/a").GoChild(""), "/a");
    EXPECT_STREQ(zFSPath("/a").GoChild(nullptr), "/a");
    zFSPath path("/a");
    path = zString("/other");
    EXPECT_STREQ(path.GoParent(), "/");
}

TEST_F(FileTest, MakesAFolderWithItsParentsAndTwice) {
    const std::string deep = path("a/b/c");
    EXPECT_EQ(zDirectory::MakeSureExists(deep.c_str()), 0);
    EXPECT_TRUE(fs::is_directory(deep));
    EXPECT_EQ(zDirectory::MakeSureExists((deep + "/").c_str()), 0);
}

// Neither 0 nor that there is no such folder: that is what a look at it says afterwards.
TEST_F(FileTest, WhyAFolderCannotBeMadeIsTraced) {
    std::ofstream(path("f")) << "x";
    std::vector<std::string> names{"f", "f/below"};
    // In the way of a folder, and not there for who looks at it; not every system lets us make one.
    std::error_code not_made;
    fs::create_symlink(path("nowhere"), path("link"), not_made);
    if (!not_made) names.emplace_back("link");
    for (const std::string& name : names) {
        const std::string folder = path(name.c_str());
        const pennywort::tests::collected_traces traces;
        EXPECT_LT(zDirectory::MakeSureExists(folder.c_str()), 0);
        const std::string front = "zDirectory::MakeSureExists: failed (err=";
        ASSERT_EQ(traces.text().substr(0, front.size()), front);
        const int error = zString(traces.text().c_str() + front.size()).AsInt32();
        EXPECT_NE(error, 0) << name;
        EXPECT_NE(error, ENOENT) << name;
    }
}

TEST_F(FileTest, AFileInTheWayOfAFolderIsAFailure) {
    std::ofstream(path("f")) << "x";
    EXPECT_LT(zDirectory::MakeSureExists(path("f").c_str()), 0);
    EXPECT_LT(zDirectory::MakeSureExists(path("f/below").c_str()), 0);
    EXPECT_LT(zDirectory::MakeSureExists(""), 0);
    EXPECT_LT(zDirectory::MakeSureExists(nullptr), 0);
    EXPECT_EQ(content("f"), "x");
}

}  // namespace
