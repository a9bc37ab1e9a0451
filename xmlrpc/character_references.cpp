// character_references.cpp - see the header for the contract.
#include "xmlrpc/character_references.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "loam/utf8.h"

namespace pennywort::xmlrpc {
namespace {

void append_reference(std::string& out, char32_t point) {
    std::array<char, 8> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                   static_cast<std::uint32_t>(point), 16)
                         .ptr;
    out += "&#x";
    out.append(digits.data(), end);
    out += ';';
}

bool is_beyond_ascii(char c) { return static_cast<unsigned char>(c) > 127; }

}  // namespace

std::string with_character_references(std::string_view xml) {
    std::string out;
    out.reserve(xml.size());
    while (!xml.empty()) {
        const auto stop = std::find_if(xml.begin(), xml.end(), is_beyond_ascii);
        const auto plain = static_cast<std::size_t>(stop - xml.begin());
        out += xml.substr(0, plain);
        xml.remove_prefix(plain);
        if (xml.empty()) break;
        const loam::utf8_piece next = loam::first_character(xml);
        append_reference(out, next.point);
        xml.remove_prefix(next.bytes);
    }
    return out;
}

}  // namespace pennywort::xmlrpc
