// loam/xml_text.cpp - see the header for the contract.
#include "loam/xml_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "loam/ascii.h"
#include "loam/utf8.h"

namespace loam {
namespace {

struct range {
    char32_t first;
    char32_t last;
};

// Beyond ASCII: what a name may begin with, and what may stand in it beside that.
constexpr range k_beginnings[] = {
    {0xC0, 0xD6},     {0xD8, 0xF6},     {0xF8, 0x2FF},    {0x370, 0x37D},
    {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F}, {0x2C00, 0x2FEF},
    {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr range k_others[] = {{0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

template <std::size_t count>
bool is_within(char32_t point, const range (&ranges)[count]) {
    return std::any_of(std::begin(ranges), std::end(ranges), [point](const range& one) {
        return point >= one.first && point <= one.last;
    });
}

// What a byte of ASCII is in a name.
enum class place : unsigned char { none, behind_the_first, anywhere };

constexpr std::array<place, 128> made_places() {
    std::array<place, 128> made{};
    for (std::size_t i = 0; i < made.size(); ++i) {
        const char c = static_cast<char>(i);
        if (is_digit(c) || c == '-' || c == '.') made[i] = place::behind_the_first;
        if (is_letter(c) || c == '_' || c == ':') made[i] = place::anywhere;
    }
    return made;
}
constexpr std::array<place, 128> k_places = made_places();

bool begins_name(char32_t point) {
    return point < 0x80 ? k_places[point] == place::anywhere : is_within(point, k_beginnings);
}

bool continues_name(char32_t point) {
    if (point < 0x80) return k_places[point] != place::none;
    return is_within(point, k_beginnings) || is_within(point, k_others);
}

// The bytes at the front that are ASCII and stand where they may.
std::size_t plain_bytes(std::string_view name) {
    std::size_t count = 0;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const place least = count == 0 ? place::anywhere : place::behind_the_first;
        if (byte >= k_places.size() || k_places[byte] < least) break;
        ++count;
    }
    return count;
}

}  // namespace

bool is_xml_name(std::string_view name) {
    const std::size_t plain = plain_bytes(name);
    if (plain == name.size()) return plain > 0;
    name.remove_prefix(plain);
    bool is_first = plain == 0;
    while (!name.empty()) {
        const utf8_piece next = first_character(name);
        if (!next.is_valid) return false;
        if (is_first ? !begins_name(next.point) : !continues_name(next.point)) return false;
        name.remove_prefix(next.bytes);
        is_first = false;
    }
    return true;
}

}  // namespace loam
