// tests/host/pixels_test.cpp - every colour and alpha against the formulas they are meant to
// follow.
#include "host/output/pixels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace pennywort::host {
namespace {

std::uint32_t pixel(std::uint32_t b, std::uint32_t g, std::uint32_t r, std::uint32_t a) {
    return b | g << 8 | r << 16 | a << 24;
}

// colour * 255 / alpha to the nearest whole number, halves up, in whole numbers only.
std::uint32_t divided(std::uint32_t colour, std::uint32_t alpha) {
    if (alpha == 0) return 0;
    return (2 * std::min(colour, alpha) * 255 + alpha) / (2 * alpha);
}

// Three pixels per pair, so that each colour stands once in each place.
TEST(Unpremultiply, EveryColourAndAlphaIsRoundedToNearest) {
    std::vector<std::uint32_t> from;
    for (std::uint32_t a = 0; a < 256; ++a) {
        for (std::uint32_t c = 0; c < 256; ++c) {
            from.insert(from.end(), {pixel(c, 0, a, a), pixel(a, c, 0, a), pixel(0, a, c, a)});
        }
    }
    std::vector<std::uint32_t> to(from.size());
    unpremultiply(from.data(), to.data(), from.size());
    for (std::size_t i = 0; i < from.size(); ++i) {
        const std::uint32_t a = from[i] >> 24;
        const auto want = pixel(divided(from[i] & 255, a), divided(from[i] >> 8 & 255, a),
                                divided(from[i] >> 16 & 255, a), a);
        ASSERT_EQ(to[i], want) << "pixel " << std::hex << from[i];
    }
}

// What has been multiplied comes back as close as 8 bits allow: full colour stays full at an edge.
TEST(Unpremultiply, LeavesNoDarkFringe) {
    for (std::uint32_t a = 1; a < 256; ++a) {
        std::uint32_t one = pixel(a, a, a, a);
        unpremultiply(&one, &one, 1);
        EXPECT_EQ(one, pixel(255, 255, 255, a));
    }
}

TEST(Unpremultiply, OpaquePixelsStayAsTheyAre) {
    for (std::uint32_t c = 0; c < 256; ++c) {
        std::uint32_t one = pixel(c, 255 - c, c / 2, 255);
        const std::uint32_t before = one;
        unpremultiply(&one, &one, 1);
        EXPECT_EQ(one, before);
    }
}

TEST(Unpremultiply, OddNumbersOfPixelsStayInsideTheirBounds) {
    for (std::size_t count = 0; count < 40; ++count) {
        std::vector<std::uint32_t> from(count, pixel(10, 20, 30, 60));
        std::vector<std::uint32_t> to(count + 1, 0xDEADBEEF);
        unpremultiply(from.data(), to.data(), count);
        EXPECT_EQ(to[count], 0xDEADBEEF);
        for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(to[i], pixel(43, 85, 128, 60));
    }
}

TEST(DropAlpha, KeepsTheOrderOfTheColours) {
    const std::uint32_t from[] = {pixel(1, 2, 3, 4), pixel(5, 6, 7, 0)};
    std::uint8_t to[6] = {};
    drop_alpha(from, to, 2);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(to[i], "\1\2\3\5\6\7"[i]);
}

struct ycc {
    double y, cb, cr;
};

// BT.709 as it stands in the standard, not rounded.
ycc exact_bt709(std::uint32_t p) {
    const double b = (p & 255) / 255.0;
    const double g = (p >> 8 & 255) / 255.0;
    const double r = (p >> 16 & 255) / 255.0;
    const double y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
    return {16 + 219 * y, 128 + 224 * (b - y) / 1.8556, 128 + 224 * (r - y) / 1.5748};
}

ycc converted(std::uint32_t p) {
    std::uint8_t y = 0;
    std::uint8_t cb = 0;
    std::uint8_t cr = 0;
    to_bt709(&p, &y, &cb, &cr, 1);
    return {double(y), double(cb), double(cr)};
}

TEST(ToBt709, StaysWithinARoundingOfTheExactColour) {
    for (std::uint32_t r = 0; r < 256; r += 5) {
        for (std::uint32_t g = 0; g < 256; g += 3) {
            for (std::uint32_t b = 0; b < 256; b += 5) {
                const auto p = pixel(b, g, r, 255);
                const auto want = exact_bt709(p);
                const auto got = converted(p);
                ASSERT_LE(std::abs(got.y - want.y), 0.51) << std::hex << p;
                ASSERT_LE(std::abs(got.cb - want.cb), 0.51) << std::hex << p;
                ASSERT_LE(std::abs(got.cr - want.cr), 0.51) << std::hex << p;
            }
        }
    }
}

TEST(ToBt709, GreysHaveNoColourAndTheEndsAreThoseOfTheLimitedRange) {
    for (std::uint32_t c = 0; c < 256; ++c) {
        const auto got = converted(pixel(c, c, c, 255));
        EXPECT_EQ(got.cb, 128) << c;
        EXPECT_EQ(got.cr, 128) << c;
    }
    EXPECT_EQ(converted(pixel(0, 0, 0, 255)).y, 16);
    EXPECT_EQ(converted(pixel(255, 255, 255, 255)).y, 235);
    EXPECT_EQ(converted(pixel(255, 0, 0, 255)).cb, 240);
    EXPECT_EQ(converted(pixel(0, 255, 255, 255)).cb, 16);
    EXPECT_EQ(converted(pixel(0, 0, 255, 255)).cr, 240);
    EXPECT_EQ(converted(pixel(255, 255, 0, 255)).cr, 16);
}

TEST(ToBt709, TransparentPartsShowBlack) {
    const auto got = converted(pixel(0, 0, 0, 0));
    EXPECT_EQ(got.y, 16);
    EXPECT_EQ(got.cb, 128);
}

}  // namespace
}  // namespace pennywort::host
