// frame_looks_test.cpp - which frames show a page.
#include "webdisplay/frame_looks.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace pennywort::webdisplay {
namespace {

constexpr std::uint32_t k_page = 0xFF14304A;

struct look_case {
    const char* name;
    std::vector<std::uint32_t> pixels;  // of a frame of 3 x 2
    bool shows_in_opaque;
    bool shows_in_transparent;
};
void PrintTo(const look_case& c, std::ostream* out) { *out << c.name; }

constexpr std::uint32_t k_black = k_opaque_black_pixel;

const look_case k_looks[] = {
    {"Black", {k_black, k_black, k_black, k_black, k_black, k_black}, false, true},
    {"Clear", {0, 0, 0, 0, 0, 0}, false, false},
    {"Page", {k_page, k_page, k_page, k_page, k_page, k_page}, true, true},
    {"OnlyTheFirst", {k_page, k_black, k_black, k_black, k_black, k_black}, true, true},
    {"OnlyTheLast", {k_black, k_black, k_black, k_black, k_black, k_page}, true, true},
    {"LastIsMissing", {k_page, k_page, k_page, k_page, k_page, 0}, false, true},
    {"FirstIsMissing", {0, k_page, k_page, k_page, k_page, k_page}, false, true},
    {"RestIsMissing", {k_black, 0, 0, 0, 0, 0}, false, true},
    {"HalfClear", {k_page, k_page, 0x80102030, k_page, k_page, k_page}, false, true},
};

class FrameLooks : public testing::TestWithParam<look_case> {};

TEST_P(FrameLooks, ShowAPageOrNone) {
    const look_case& one = GetParam();
    EXPECT_EQ(shows_page(one.pixels.data(), 3, 2, k_opaque_black_pixel), one.shows_in_opaque);
    EXPECT_EQ(shows_page(one.pixels.data(), 3, 2, k_clear_pixel), one.shows_in_transparent);
}
INSTANTIATE_TEST_SUITE_P(All, FrameLooks, testing::ValuesIn(k_looks),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace pennywort::webdisplay
