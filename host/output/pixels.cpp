// host/output/pixels.cpp - see the header for the contract.
#include "host/output/pixels.h"

#include <algorithm>

namespace pennywort::host {

namespace {

constexpr std::uint32_t blue(std::uint32_t pixel) { return pixel & 255u; }
constexpr std::uint32_t green(std::uint32_t pixel) { return pixel >> 8 & 255u; }
constexpr std::uint32_t red(std::uint32_t pixel) { return pixel >> 16 & 255u; }
constexpr std::uint32_t alpha(std::uint32_t pixel) { return pixel >> 24; }

// (colour * 510 + alpha) / (2 * alpha) is colour * 255 / alpha with the half for rounding in it.
// Above the line stands a whole number below 2^24, so the float division is exact where it should
// be and else at least 1/510 away from the next whole number: cutting it off rounds as promised.
std::uint32_t divided(std::uint32_t colour, std::uint32_t by) {
    const std::uint32_t above = std::min(colour, by) * 510u + by;
    const std::uint32_t below = std::max(by, 1u) * 2u;
    return static_cast<std::uint32_t>(
        static_cast<std::int32_t>(static_cast<float>(static_cast<std::int32_t>(above)) /
                                  static_cast<float>(static_cast<std::int32_t>(below))));
}

// The weights of BT.709 times 219/255 (luma) or 224/255 (chroma) times 65536. Each chroma row adds
// up to exactly 0, so that greys have no colour, and the luma row to 219/255.
constexpr std::int32_t k_half = 1 << 15;
constexpr std::int32_t k_y[3] = {11966, 40254, 4064};
constexpr std::int32_t k_cb[3] = {-6596, -22189, 28785};
constexpr std::int32_t k_cr[3] = {28784, -26145, -2639};

std::uint8_t weighed(const std::int32_t (&weights)[3], std::int32_t offset, std::uint32_t pixel) {
    const std::int32_t sum = weights[0] * static_cast<std::int32_t>(red(pixel)) +
                             weights[1] * static_cast<std::int32_t>(green(pixel)) +
                             weights[2] * static_cast<std::int32_t>(blue(pixel));
    return static_cast<std::uint8_t>((sum + (offset << 16) + k_half) >> 16);
}

}  // namespace

void unpremultiply(const std::uint32_t* from, std::uint32_t* to, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint32_t pixel = from[i];
        const std::uint32_t by = alpha(pixel);
        to[i] = divided(blue(pixel), by) | divided(green(pixel), by) << 8 |
                divided(red(pixel), by) << 16 | by << 24;
    }
}

void drop_alpha(const std::uint32_t* from, std::uint8_t* to, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        to[3 * i] = static_cast<std::uint8_t>(blue(from[i]));
        to[3 * i + 1] = static_cast<std::uint8_t>(green(from[i]));
        to[3 * i + 2] = static_cast<std::uint8_t>(red(from[i]));
    }
}

void alpha_as_grey(const std::uint32_t* from, std::uint32_t* to, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) to[i] = alpha(from[i]) * 0x010101u | 0xFF000000u;
}

void to_bt709(const std::uint32_t* from, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
              std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        y[i] = weighed(k_y, 16, from[i]);
        cb[i] = weighed(k_cb, 128, from[i]);
        cr[i] = weighed(k_cr, 128, from[i]);
    }
}

}  // namespace pennywort::host
