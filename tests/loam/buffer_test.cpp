// buffer_test.cpp - zBuffer and zBufferStream.
#include "loam/buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr std::uint32_t k_all = 0xFFFFFFFFu;

std::string_view view(const zBuffer& buffer) { return {buffer.Data(), buffer.Length()}; }

TEST(Buffer, BeginsWithZeroes) {
    const zBuffer buffer(4, 0);
    EXPECT_EQ(view(buffer), std::string_view("\0\0\0\0", 4));
    EXPECT_EQ(zBuffer().Length(), 0u);
}

TEST(Buffer, KeepsAsMuchAsAskedAndClearsTheRest) {
    zBuffer buffer(4, 16);
    std::memcpy(buffer.Data(), "abcd", 4);
    EXPECT_EQ(buffer.ResizeTo(6, 2), 0);
    EXPECT_EQ(view(buffer), std::string_view("ab\0\0\0\0", 6));
    std::memcpy(buffer.Data(), "uvwxyz", 6);
    EXPECT_EQ(buffer.ResizeTo(3, k_all), 0);
    EXPECT_EQ(view(buffer), "uvw");
    EXPECT_EQ(buffer.ResizeTo(5, k_all), 0);
    EXPECT_EQ(view(buffer), std::string_view("uvw\0\0", 5)) << "old bytes came back";
    EXPECT_EQ(buffer.ResizeTo(0, 9), 0);
    EXPECT_EQ(buffer.Length(), 0u);
}

TEST(Buffer, GrowsByItsStep) {
    zBuffer buffer(0, 1000);
    ASSERT_EQ(buffer.ResizeTo(1, 0), 0);
    const std::uint32_t capacity = buffer.Capacity();
    EXPECT_GE(capacity, 1000u);
    ASSERT_EQ(buffer.ResizeTo(1000, k_all), 0);
    EXPECT_EQ(buffer.Capacity(), capacity);
}

TEST(Buffer, ACopyIsItsOwn) {
    zBuffer first(3);
    std::memcpy(first.Data(), "abc", 3);
    zBuffer second(first);
    EXPECT_EQ(std::string(second.Data(), second.Length()), "abc");
    second.Data()[0] = 'x';
    ASSERT_EQ(second.ResizeTo(100, 3), 0);
    EXPECT_EQ(std::string(first.Data(), first.Length()), "abc");
    first = second;
    EXPECT_EQ(first.Length(), 100u);
    EXPECT_EQ(std::string(first.Data(), 4), std::string("xbc\0", 4));
    const zBuffer none;
    first = none;
    EXPECT_EQ(first.Length(), 0u);
    zBuffer& itself = first;
    first = itself;
    EXPECT_EQ(first.Length(), 0u);
}

TEST(BufferStream, AppendsBehindWhatIsThere) {
    zBuffer buffer(2, 0);
    std::memcpy(buffer.Data(), "ab", 2);
    zBufferStream stream(buffer, 64);
    std::uint32_t written = 9;
    EXPECT_EQ(stream.Write("cd\0e", 4, &written), 0);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(stream.Write(nullptr, 0, nullptr), 0);
    stream.ResizeBufferToFit();
    EXPECT_EQ(view(buffer), std::string_view("abcd\0e", 6));
}

TEST(BufferStream, NothingIsWrittenOfWhatCannotBe) {
    zBuffer buffer;
    zBufferStream stream(buffer, 0);
    ASSERT_EQ(stream.Write("x", 1, nullptr), 0);
    std::uint32_t written = 9;
    EXPECT_LT(stream.Write(nullptr, 4, &written), 0);
    EXPECT_EQ(written, 0u);
    written = 9;
    EXPECT_LT(stream.Write("y", k_all, &written), 0) << "past 4 GB";
    EXPECT_EQ(written, 0u);
    stream.ResizeBufferToFit();
    EXPECT_EQ(view(buffer), "x");
}

TEST(BufferStream, ManyPiecesOfEverySizeMakeOneText) {
    const std::string text = [] {
        std::string made;
        for (int i = 0; i < 5000; ++i) made += std::to_string(i);
        return made;
    }();
    for (const std::uint32_t grow : {0u, 1u, 7u, 4096u}) {
        zBuffer buffer;
        zBufferStream stream(buffer, grow);
        for (std::size_t at = 0, size = 1; at < text.size(); at += size, size = size % 37 + 1) {
            const std::string_view piece = std::string_view(text).substr(at, size);
            ASSERT_EQ(stream.Write(piece.data(), static_cast<std::uint32_t>(piece.size()), nullptr),
                      0);
        }
        stream.ResizeBufferToFit();
        EXPECT_EQ(view(buffer), text);
    }
}

}  // namespace
