// host/output/pixels.h - turns painted pixels into what files want: colour freed from its alpha,
// and BT.709 luma and chroma.
//
// A pixel is 32 bits: blue in the lowest byte, then green, red, alpha; as painted, colour is
// premultiplied by alpha. The loops hold no branch and no table, so that compilers vectorise them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pennywort::host {

// Divides each colour by its alpha, rounded to nearest, halves up. Colour above its alpha, which a
// page can only get by a fault, counts as full; where alpha is 0 the colour becomes 0. `from` and
// `to` may be the same.
void unpremultiply(const std::uint32_t* from, std::uint32_t* to, std::size_t pixels);

// Blue, green, red in 3 bytes a pixel; alpha is left out, which shows the page over black.
void drop_alpha(const std::uint32_t* from, std::uint8_t* to, std::size_t pixels);

// Alpha in each of the three colours, and opaque: what a keyer takes for a page's key.
void alpha_as_grey(const std::uint32_t* from, std::uint32_t* to, std::size_t pixels);

// Y', Cb and Cr of BT.709 in the limited range (16 to 235, 16 to 240), one plane each, rounded to
// nearest. Alpha is left out, as above.
void to_bt709(const std::uint32_t* from, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
              std::size_t pixels);

}  // namespace pennywort::host
