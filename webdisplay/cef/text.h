// text.h - text for the runtime (UTF-16) from ours (UTF-8), and back.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "webdisplay/cef/runtime.h"

namespace pennywort::cef {

// Owns a UTF-16 string of the runtime, to be passed as an argument or given away into a settings
// struct. Bytes that are no UTF-8 become U+FFFD; a NUL is kept.
class utf16 {
public:
    explicit utf16(std::string_view utf8) {
        if (!utf8.empty()) api().cef_string_utf8_to_utf16(utf8.data(), utf8.size(), &m_text);
    }
    utf16(const utf16&) = delete;
    utf16& operator=(const utf16&) = delete;
    ~utf16() { api().cef_string_utf16_clear(&m_text); }

    const cef_string_t* get() const noexcept { return &m_text; }
    // A view of the text that lives as long as this object, for a struct that the runtime copies.
    cef_string_t view() const noexcept { return {m_text.str, m_text.length, nullptr}; }

private:
    cef_string_t m_text{};
};

// UTF-8 of a string that the runtime keeps. A half of a surrogate pair becomes U+FFFD.
inline std::string utf8(const cef_string_t* text) {
    // Given back to the runtime also where there is no memory for our copy.
    struct converted_text {
        cef_string_utf8_t text{};
        ~converted_text() { api().cef_string_utf8_clear(&text); }
    };
    if (text == nullptr || text->str == nullptr || text->length == 0) return {};
    converted_text converted;
    api().cef_string_utf16_to_utf8(text->str, text->length, &converted.text);
    if (converted.text.str == nullptr) return {};
    return std::string(converted.text.str, converted.text.length);
}

// Frees a string that the runtime gave away.
struct given_text_freed {
    void operator()(cef_string_userfree_t text) const {
        api().cef_string_userfree_utf16_free(text);
    }
};
using given_text = std::unique_ptr<cef_string_t, given_text_freed>;

// UTF-8 of a string that the runtime gave away; it is freed.
inline std::string utf8_of(cef_string_userfree_t text) {
    const given_text given(text);
    return utf8(given.get());
}

}  // namespace pennywort::cef
