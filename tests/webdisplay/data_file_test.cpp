// data_file_test.cpp - which data files of the runtime count as whole.
#include "webdisplay/cef/data_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "loam/id_generator.h"

namespace pennywort::cef {
namespace {

using namespace std::string_view_literals;
namespace fs = std::filesystem;

class DataFileTest : public testing::Test {
protected:
    DataFileTest() {
        zString name;
        zIDGenerator::GenerateUUID(name);
        m_path = fs::temp_directory_path() / name.CString();
    }
    ~DataFileTest() override { fs::remove(m_path); }

    std::string file_of(std::string_view bytes) const {
        std::ofstream(m_path, std::ios::binary) << bytes;
        return m_path.string();
    }
    // Whole as it is, and with more behind it, but not without any of its last bytes.
    void expect_whole(bool (*is_whole)(const std::string&), std::string_view bytes) const {
        EXPECT_TRUE(is_whole(file_of(bytes)));
        EXPECT_TRUE(is_whole(file_of(std::string(bytes) + "more")));
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            EXPECT_FALSE(is_whole(file_of(bytes.substr(0, size)))) << size;
        }
    }

    fs::path m_path;
};

TEST_F(DataFileTest, APackEndsWhereItsIndexSays) {
    // One text, "hi", under the number 7.
    expect_whole(is_whole_pack, "\5\0\0\0\1\0\0\0\1\0\0\0\7\0\x18\0\0\0\0\0\x1a\0\0\0hi"sv);
    expect_whole(is_whole_pack, "\4\0\0\0\1\0\0\0\1\7\0\x15\0\0\0\0\0\x17\0\0\0hi"sv);
    expect_whole(is_whole_pack, "\5\0\0\0\1\0\0\0\0\0\0\0\0\0\x12\0\0\0"sv);
}

TEST_F(DataFileTest, WhatIsNoPackIsNotWhole) {
    for (const auto bytes :
         {"a text of some length, longer than a head"sv, "\6\0\0\0\1\0\0\0\0\0\0\0\0\0\x12\0\0\0"sv,
          "\4\0\0\0\xff\xff\xff\xff\1\0\0\0\0\0\0\0\0\0\0\0"sv,
          "\5\0\0\0\1\0\0\0\0\0\0\0\0\0\xff\xff\xff\xff"sv}) {
        EXPECT_FALSE(is_whole_pack(file_of(bytes)));
    }
    EXPECT_FALSE(is_whole_pack((m_path / "nowhere").string()));
    EXPECT_FALSE(is_whole_pack(fs::temp_directory_path().string()));
}

TEST_F(DataFileTest, UnicodeDataReachesAtLeastItsLastTable) {
    // A head of 8 bytes, and two tables that begin 20 and 24 bytes behind it.
    expect_whole(is_whole_unicode_data,
                 "\x08\0\xda\x27\x14\0\0\0\2\0\0\0\0\0\0\0\x14\0\0\0\0\0\0\0\x18\0\0\0wxyz1"sv);
    expect_whole(is_whole_unicode_data, "\x08\0\xda\x27\x14\0\0\0\0\0\0\0"sv);
}

TEST_F(DataFileTest, WhatIsNoUnicodeDataIsNotWhole) {
    for (const auto bytes :
         {"a text of some length, longer than a head"sv, "\x08\0\xda\x28\x14\0\0\0\0\0\0\0"sv,
          "\xff\xff\xda\x27\x14\0\0\0\0\0\0\0"sv, "\x08\0\xda\x27\x14\0\0\0\xff\xff\xff\xff"sv,
          "\x08\0\xda\x27\x14\0\0\0\1\0\0\0\0\0\0\0\xff\xff\xff\xff"sv}) {
        EXPECT_FALSE(is_whole_unicode_data(file_of(bytes)));
    }
    EXPECT_FALSE(is_whole_unicode_data((m_path / "nowhere").string()));
}

}  // namespace
}  // namespace pennywort::cef
