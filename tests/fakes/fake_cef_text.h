// fake_cef_text.h - text inside the fake runtime: std strings here, counted C strings at its edge.
#pragma once

#include <string>
#include <string_view>

#include "cef_abi.h"

namespace fake {

// Faulty bytes, and halves of a surrogate pair, become U+FFFD.
std::u16string wide(std::string_view utf8);
std::string narrow(std::u16string_view utf16);

// Of a string that was passed in; checked against the book. Null reads as empty.
std::u16string wide_of(const cef_string_t* text, const char* where);
std::string narrow_of(const cef_string_t* text, const char* where);

// A string for the receiver to free; null for an empty one, as in the real runtime.
cef_string_userfree_t given_text(std::u16string_view text);

// A string argument, which lives as long as this object.
class text_argument {
public:
    explicit text_argument(std::string_view utf8);
    const cef_string_t* get() const { return &m_string; }

private:
    std::u16string m_text;
    cef_string_t m_string{};
};

}  // namespace fake
