// frame_looks.cpp - see the header for the contract.
#include "webdisplay/frame_looks.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <span>

namespace pennywort::webdisplay {

namespace {

using pixels_view = std::span<const std::uint32_t>;

bool is_blank(pixels_view pixels, std::uint32_t background) {
    return std::all_of(pixels.begin(), pixels.end(),
                       [background](std::uint32_t one) { return one == background; });
}

// The first frames of a new browser may lack whole parts, which are clear then, as nothing of an
// opaque display is.
bool is_opaque(pixels_view pixels) {
    return std::accumulate(pixels.begin(), pixels.end(), k_opaque_black_pixel, std::bit_and<>()) ==
           k_opaque_black_pixel;
}

}  // namespace

bool shows_page(const std::uint32_t* pixels, long width, long height, std::uint32_t background) {
    const pixels_view all(pixels,
                          static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    if (is_blank(all, background)) return false;
    return background == k_clear_pixel || is_opaque(all);
}

}  // namespace pennywort::webdisplay
