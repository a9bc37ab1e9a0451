// frame_looks.h - what can be told from the pixels of a frame alone.
#pragma once

#include <cstdint>

namespace pennywort::webdisplay {

// A display as it is before a page, in the order of bytes in which the runtime paints.
inline constexpr std::uint32_t k_clear_pixel = 0x00000000;
inline constexpr std::uint32_t k_opaque_black_pixel = 0xFF000000;

// Whether a page is to be seen: the frame is whole, and not all of it is background. `pixels` are
// at least one.
bool shows_page(const std::uint32_t* pixels, long width, long height, std::uint32_t background);

}  // namespace pennywort::webdisplay
