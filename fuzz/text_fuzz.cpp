// text_fuzz.cpp - core/text against plain ways to do the same, and against its own inverses.
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "core/text/percent.h"
#include "core/text/utf8.h"
#include "fuzz/fuzz.h"

using namespace pennywort::text;

namespace {

// How many bytes a first byte promises, and which points that many bytes may stand for.
struct form {
    unsigned char mask, mark;
    std::size_t bytes;
    char32_t lowest, highest;
};
constexpr form k_forms[] = {{0x80, 0x00, 1, 0, 0x7f},
                            {0xe0, 0xc0, 2, 0x80, 0x7ff},
                            {0xf0, 0xe0, 3, 0x800, 0xffff},
                            {0xf8, 0xf0, 4, 0x10000, 0x10ffff}};

// Decodes first and looks afterwards whether the point is one; 0 bytes where it is not.
std::size_t plain_length(std::string_view text, char32_t& point) {
    for (const form& one : k_forms) {
        const auto first = static_cast<unsigned char>(text[0]);
        if ((first & one.mask) != one.mark || text.size() < one.bytes) continue;
        point = first & static_cast<unsigned char>(~one.mask);
        for (std::size_t i = 1; i < one.bytes; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if ((byte & 0xc0) != 0x80) return 0;
            point = point * 64 + (byte & 0x3f);
        }
        const bool is_surrogate = point >= 0xd800 && point <= 0xdfff;
        return point >= one.lowest && point <= one.highest && !is_surrogate ? one.bytes : 0;
    }
    return 0;
}

void check_utf8(std::string_view text) {
    bool is_valid = true;
    for (std::string_view rest = text; !rest.empty();) {
        const utf8_piece front = first_character(rest);
        char32_t point = 0;
        const std::size_t length = plain_length(rest, point);
        require(front.bytes >= 1 && front.bytes <= rest.size(), "a piece lies in its text");
        require(front.is_valid == (length != 0), "both readers find a character");
        if (front.is_valid) {
            require(front.bytes == length && front.point == point, "it is the same one");
            std::string written;
            append_utf8(written, front.point);
            require(written == rest.substr(0, length), "written, it is the same bytes");
        }
        is_valid = is_valid && front.is_valid;
        rest.remove_prefix(front.bytes);
    }
    require(is_utf8(text) == is_valid, "a text is valid when all its characters are");
}

void check_percent(std::string_view text) {
    require(percent_decoded(percent_encoded(text)) == text, "encoded and decoded, it is the same");
    require(percent_decoded(percent_encoded(text, k_path_bytes)) == text, "as a path too");
    const std::string lenient = percent_decoded_as_browsers_do(text);
    const auto strict = percent_decoded(text);
    require(!strict || *strict == lenient, "what both ways decode they decode alike");
    require(lenient.size() <= text.size(), "nothing is added");
}

// Digit by digit, in a type that is wide enough.
void check_numbers(std::string_view text) {
    const bool is_negative = !text.empty() && text.front() == '-';
    const std::string_view number = text.substr(is_negative ? 1 : 0);
    bool is_number = !number.empty();
    double value = 0;
    for (const char c : number) {
        is_number = is_number && c >= '0' && c <= '9';
        value = value * 10 + (c - '0');
    }
    if (is_negative) value = -value;
    is_number = is_number && value >= std::numeric_limits<std::int32_t>::min() &&
                value <= std::numeric_limits<std::int32_t>::max();
    const auto read = whole<std::int32_t>(text);
    require(read.has_value() == is_number, "both readers find a number");
    require(!read || *read == value, "it is the same one");
    require(digits<std::int32_t>(text).has_value() == (is_number && !is_negative), "digits alone");
    require(!read || decimal(text) == *read, "a whole number is a decimal one");
}

void check_trimmed(std::string_view text) {
    const std::string_view inner = trimmed(text);
    require(inner.empty() || (!is_space(inner.front()) && !is_space(inner.back())),
            "no space left");
    require(inner.empty() || text.find(inner) != text.npos, "it is a part of the text");
    require(equal_ignoring_case(text, lower(text)), "case plays no part");
}

void look(const std::uint8_t* data, std::size_t size) {
    // In memory of its own size, so that a look past it is noticed.
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    check_utf8(bytes);
    check_percent(bytes);
    check_numbers(bytes);
    check_trimmed(bytes);
}

const fuzz_target k_target("text", look);

}  // namespace
