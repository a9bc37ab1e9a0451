// large_part_test_linux.cpp - a part of 2 GiB. Its bytes are pages that nobody has written to,
// which this system gives out without memory behind them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "multipart.h"

namespace {

TEST(LargePart, IsFoundAndCounted) {
    constexpr std::int32_t k_length = std::numeric_limits<std::int32_t>::max();
    constexpr std::string_view k_front = "--B\r\n\r\n";
    constexpr std::string_view k_back = "\r\n--B--";
    const std::unique_ptr<char, decltype(&std::free)> text(
        static_cast<char*>(std::calloc(k_length, 1)), &std::free);
    ASSERT_NE(text, nullptr);
    k_front.copy(text.get(), k_front.size());
    k_back.copy(text.get() + k_length - k_back.size(), k_back.size());
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(text.get(), k_length, "B", 1, 0), 0);
    cMultipartRecord::Section section;
    ASSERT_EQ(cMultipartRecord(record, nullptr).GetSection(section, 0), 0);
    const char* data = nullptr;
    std::int32_t size = 0;
    ASSERT_EQ(reader.GetSectionData(section, text.get(), k_length, &data, &size), 0);
    EXPECT_EQ(data, text.get() + k_front.size());
    EXPECT_EQ(size, k_length - static_cast<std::int32_t>(k_front.size() + k_back.size()));
}

}  // namespace
