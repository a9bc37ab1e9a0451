// boyer_moore_test.cpp - cBoyerMoore against the answers of a search that tries every place.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "utils.h"

namespace {

std::int32_t size_of(std::string_view text) { return static_cast<std::int32_t>(text.size()); }

// The text is copied to memory of its own size, so that a look past it is noticed.
std::int32_t find(std::string_view pattern, std::string_view text) {
    const auto exact = std::make_unique<char[]>(text.size() + 1);
    char* const start = exact.get() + 1;
    text.copy(start, text.size());
    return cBoyerMoore(pattern.data(), size_of(pattern)).FindIn(start, size_of(text));
}

std::int32_t expected(std::string_view pattern, std::string_view text) {
    const std::size_t at = text.find(pattern);
    return at == std::string_view::npos ? -1 : static_cast<std::int32_t>(at);
}

TEST(BoyerMoore, FindsNothingWithoutAPattern) {
    EXPECT_EQ(cBoyerMoore(nullptr, 3).FindIn("abc", 3), -1);
    EXPECT_EQ(cBoyerMoore("abc", 0).FindIn("abc", 3), -1);
    EXPECT_EQ(cBoyerMoore("abc", -1).FindIn("abc", 3), -1);
    EXPECT_EQ(cBoyerMoore("abc", std::numeric_limits<std::int32_t>::min()).FindIn("abc", 3), -1);
}

TEST(BoyerMoore, FindsNothingInNothing) {
    const cBoyerMoore searcher("abc", 3);
    EXPECT_EQ(searcher.FindIn(nullptr, 3), -1);
    EXPECT_EQ(searcher.FindIn("abc", 0), -1);
    EXPECT_EQ(searcher.FindIn("abc", -3), -1);
    EXPECT_EQ(searcher.FindIn("abc", 2), -1);
}

TEST(BoyerMoore, TakesPatternsOf255BytesAndNotOf256) {
    const std::string longest(255, 'p');
    EXPECT_EQ(find(longest, "x" + longest), 1);
    EXPECT_EQ(find(longest + "p", "x" + longest + "p"), -1);
}

TEST(BoyerMoore, FindsTheLastOfTheText) {
    EXPECT_EQ(find("ab", "aXbab"), 3);
    EXPECT_EQ(find("abc", "abc"), 0);
    EXPECT_EQ(find("c", "abc"), 2);
}

TEST(BoyerMoore, FindsTheFirstOfSeveral) {
    EXPECT_EQ(find("aa", "baaaa"), 1);
    const std::string delimiter = "\r\n--MimeBoundary_8923gr836bidfb3i";
    EXPECT_EQ(find(delimiter, "12" + delimiter + delimiter), 2);
}

TEST(BoyerMoore, TakesAnyByte) {
    const std::string pattern("\0\xff\x80\r\n", 5);
    EXPECT_EQ(find(pattern, std::string("\0\xff\x80\r\r\n\0\xff", 8) + pattern), 8);
}

// Every length of pattern, at every place of a short text: what is searched in strides has its
// ends.
TEST(BoyerMoore, FindsAPatternOfAnyLengthAnywhere) {
    std::mt19937 random(7);
    for (std::int32_t length = 1; length <= 255; length += length < 40 ? 1 : 23) {
        std::string pattern(static_cast<std::size_t>(length), 'p');
        for (char& c : pattern) c = static_cast<char>('a' + random() % 20);
        for (std::size_t before = 0; before < 70; ++before) {
            const std::string text = std::string(before, 'z') + pattern + std::string(before, 'y');
            ASSERT_EQ(find(pattern, text), static_cast<std::int32_t>(before)) << length;
        }
    }
}

TEST(BoyerMoore, AgreesWithTryingEveryPlace) {
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        // Few letters make for many near misses.
        const unsigned letters = 1 + random() % 4;
        auto draw = [&](std::size_t most) {
            std::string text(random() % most, 'a');
            for (char& c : text) c = static_cast<char>('a' + random() % letters);
            return text;
        };
        const std::string text = draw(900);
        std::string pattern = draw(60) + "a";
        if (round % 2 == 0 && text.size() > 80)
            pattern = text.substr(random() % 40, 1 + random() % 60);
        ASSERT_EQ(find(pattern, text), expected(pattern, text)) << pattern << " in " << text;
    }
}

// From the ways for short texts to those for long ones, and over their ends.
TEST(BoyerMoore, FindsThePatternInTextsOfAnyLength) {
    std::mt19937 random(13);
    const std::string noise = [&] {
        std::string bytes(9000, 'x');
        for (char& c : bytes) c = static_cast<char>('a' + random() % 26);
        return bytes;
    }();
    for (const std::size_t length : {1u, 2u, 8u, 15u, 16u, 17u, 46u, 255u}) {
        const std::string pattern(length, '\xee');
        for (const std::size_t before :
             {200u, 255u, 256u, 257u, 300u, 4000u, 4095u, 4096u, 8192u}) {
            const std::string text = noise.substr(0, before) + pattern;
            ASSERT_EQ(find(pattern, text), static_cast<std::int32_t>(before)) << length;
            const std::string cut = text.substr(0, text.size() - 1);
            ASSERT_EQ(find(pattern, cut), -1) << length << " behind " << before;
        }
    }
}

// Hosts know the three fields and their order, and copy them as they lie.
TEST(BoyerMoore, HoldsItsPatternLengthAndSkipsInThisOrder) {
    struct layout {
        const unsigned char* pattern;
        std::int32_t length;
        std::int32_t skip[256];
    };
    static_assert(sizeof(cBoyerMoore) == sizeof(layout));
    static_assert(std::is_trivially_copyable_v<cBoyerMoore>);
    const char* const pattern = "abcab\xff";
    layout held{};
    const cBoyerMoore searcher(pattern, 6);
    std::memcpy(&held, static_cast<const void*>(&searcher), sizeof held);
    EXPECT_EQ(static_cast<const void*>(held.pattern), pattern);
    EXPECT_EQ(held.length, 6);
    for (int byte = 0; byte < 256; ++byte) {
        const int want = byte == 'a' ? 2 : byte == 'b' ? 1 : byte == 'c' ? 3 : 6;
        EXPECT_EQ(held.skip[byte], want) << byte;
    }
    const cBoyerMoore none(pattern, 256);
    std::memcpy(&held, static_cast<const void*>(&none), sizeof held);
    EXPECT_EQ(held.pattern, nullptr);
    EXPECT_EQ(held.length, 256);
}

TEST(BoyerMoore, ACopySearchesTheSame) {
    const std::string pattern = "needle in the haystack";
    const std::string text = "hay" + pattern;
    const cBoyerMoore original(pattern.data(), size_of(pattern));
    const cBoyerMoore copy(original);
    cBoyerMoore other("other", 5);
    other = copy;
    cBoyerMoore moved(std::move(other));
    EXPECT_EQ(copy.FindIn(text.data(), size_of(text)), 3);
    EXPECT_EQ(moved.FindIn(text.data(), size_of(text)), 3);
}

}  // namespace
