// loam/xml_text.h - which characters and names XML has (XML 1.0, fifth edition). No clock, no I/O.
#pragma once

#include <string_view>

namespace loam {

// Whether a character may stand in a document at all, as itself or by its number.
constexpr bool is_xml_character(char32_t point) {
    if (point < 0x20) return point == '\t' || point == '\n' || point == '\r';
    return point < 0xD800 || (point > 0xDFFF && point < 0xFFFE) ||
           (point > 0xFFFF && point <= 0x10FFFF);
}

// Of an element or an attribute. `name` is UTF-8; what is not valid is no name.
bool is_xml_name(std::string_view name);

// The white space of XML, which is less than that of C.
constexpr bool is_xml_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace loam
