// loam/xml_text.cpp - see the header for the contract.
#include "loam/xml_text.h"

#include <algorithm>
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

bool begins_name(char32_t point) {
    if (point >= 0x80) return is_within(point, k_beginnings);
    const char c = static_cast<char>(point);
    return is_letter(c) || c == '_' || c == ':';
}

bool continues_name(char32_t point) {
    if (begins_name(point)) return true;
    if (point >= 0x80) return is_within(point, k_others);
    const char c = static_cast<char>(point);
    return is_digit(c) || c == '-' || c == '.';
}

}  // namespace

bool is_xml_name(std::string_view name) {
    utf8_piece next = first_character(name);
    if (!next.is_valid || !begins_name(next.point)) return false;
    while (true) {
        name.remove_prefix(next.bytes);
        if (name.empty()) return true;
        next = first_character(name);
        if (!next.is_valid || !continues_name(next.point)) return false;
    }
}

}  // namespace loam
