// fake_cef_text.cpp - conversions of the fake runtime's text, and the string functions it exports.
#include "tests/fakes/fake_cef_text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_ledger.h"

namespace fake {

namespace {

constexpr char32_t k_replacement = 0xFFFD;

bool is_high(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void append_utf16(std::u16string& out, char32_t point) {
    if (point < 0x10000) {
        out.push_back(static_cast<char16_t>(point));
        return;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

void append_utf8(std::string& out, char32_t point) {
    const auto tail = [&](int shift) {
        out.push_back(static_cast<char>(0x80 | ((point >> shift) & 0x3F)));
    };
    if (point < 0x80) {
        out.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (point >> 6)));
        tail(0);
    } else if (point < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (point >> 12)));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | (point >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

int tail_length(unsigned char lead) {
    if (lead < 0x80) return 0;
    if (lead >= 0xC2 && lead < 0xE0) return 1;
    if (lead >= 0xE0 && lead < 0xF0) return 2;
    if (lead >= 0xF0 && lead < 0xF5) return 3;
    return -1;
}

bool is_allowed(char32_t point, int tails) {
    constexpr char32_t k_least[] = {0, 0x80, 0x800, 0x10000};
    return point >= k_least[tails] && point <= 0x10FFFF && !is_high(point) && !is_low(point);
}

// The code point at `at`, which moves past it; a faulty one takes one byte with it.
char32_t next_point(std::string_view utf8, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(utf8[at]);
    const int tails = tail_length(lead);
    if (tails < 0 || utf8.size() - at <= static_cast<std::size_t>(tails))
        return ++at, k_replacement;
    char32_t point = tails == 0 ? lead : lead & (0x3Fu >> tails);
    for (int i = 1; i <= tails; ++i) {
        const auto byte = static_cast<unsigned char>(utf8[at + static_cast<std::size_t>(i)]);
        if ((byte & 0xC0) != 0x80) return ++at, k_replacement;
        point = (point << 6) | (byte & 0x3Fu);
    }
    if (!is_allowed(point, tails)) return ++at, k_replacement;
    at += static_cast<std::size_t>(tails) + 1;
    return point;
}

// Each buffer of the library is one of these, so that a stray free is seen in the book.
template <class Char>
Char* new_text(const Char* source, std::size_t length) {
    auto* copy = new Char[length + 1];
    std::copy_n(source, length, copy);
    copy[length] = 0;
    ledger::book().string_made(copy, length);
    return copy;
}

template <class Char>
void free_text(Char* text) {
    ledger::book().string_freed(text);
    delete[] text;
}

template <class String, class Char>
void put(String& out, const Char* source, std::size_t length) {
    if (out.dtor && out.str) out.dtor(out.str);
    out = String{new_text(source, length), length, &free_text<Char>};
}

template <class String>
void clear(String* text) {
    if (!text) return;
    if (text->dtor && text->str) text->dtor(text->str);
    *text = String{};
}

}  // namespace

std::u16string wide(std::string_view utf8) {
    std::u16string out;
    for (std::size_t at = 0; at < utf8.size();) append_utf16(out, next_point(utf8, at));
    return out;
}

std::string narrow(std::u16string_view utf16) {
    std::string out;
    for (std::size_t at = 0; at < utf16.size(); ++at) {
        char32_t point = utf16[at];
        if (is_high(point) && at + 1 < utf16.size() && is_low(utf16[at + 1])) {
            point = 0x10000 + ((point - 0xD800) << 10) + (utf16[++at] - 0xDC00u);
        } else if (is_high(point) || is_low(point)) {
            point = k_replacement;
        }
        append_utf8(out, point);
    }
    return out;
}

std::u16string wide_of(const cef_string_t* text, const char* where) {
    ledger::book().check_string(text, where);
    return text && text->str ? std::u16string(text->str, text->length) : std::u16string();
}

std::string narrow_of(const cef_string_t* text, const char* where) {
    return narrow(wide_of(text, where));
}

cef_string_userfree_t given_text(std::u16string_view text) {
    if (text.empty()) return nullptr;
    cef_string_userfree_t out = cef_string_userfree_utf16_alloc();
    put(*out, text.data(), text.size());
    return out;
}

text_argument::text_argument(std::string_view utf8) : m_text(wide(utf8)) {
    m_string = cef_string_t{m_text.data(), m_text.size(), nullptr};
}

}  // namespace fake

using fake::ledger;

int cef_string_utf8_to_utf16(const char* src, std::size_t src_len, cef_string_utf16_t* output) {
    ledger::book().entered("cef_string_utf8_to_utf16");
    const std::u16string text = fake::wide({src, src_len});
    fake::put(*output, text.data(), text.size());
    return text.find(u'\xFFFD') == std::u16string::npos ? 1 : 0;
}

int cef_string_utf16_to_utf8(const char16_t* src, std::size_t src_len, cef_string_utf8_t* output) {
    ledger::book().entered("cef_string_utf16_to_utf8");
    const std::string text = fake::narrow({src, src_len});
    fake::put(*output, text.data(), text.size());
    return text.find("\xEF\xBF\xBD") == std::string::npos ? 1 : 0;
}

int cef_string_utf16_set(const char16_t* src, std::size_t src_len, cef_string_utf16_t* output,
                         int copy) {
    ledger::book().entered("cef_string_utf16_set");
    fake::clear(output);
    if (copy) {
        fake::put(*output, src, src_len);
    } else {
        *output = cef_string_utf16_t{const_cast<char16_t*>(src), src_len, nullptr};
    }
    return 1;
}

int cef_string_utf16_cmp(const cef_string_utf16_t* str1, const cef_string_utf16_t* str2) {
    ledger::book().entered("cef_string_utf16_cmp");
    return fake::wide_of(str1, "cef_string_utf16_cmp")
        .compare(fake::wide_of(str2, "cef_string_utf16_cmp"));
}

void cef_string_utf16_clear(cef_string_utf16_t* str) {
    ledger::book().entered("cef_string_utf16_clear");
    fake::clear(str);
}

void cef_string_utf8_clear(cef_string_utf8_t* str) {
    ledger::book().entered("cef_string_utf8_clear");
    fake::clear(str);
}

cef_string_userfree_utf16_t cef_string_userfree_utf16_alloc() {
    ledger::book().entered("cef_string_userfree_utf16_alloc");
    ledger::book().born("given string");
    return new cef_string_utf16_t{};
}

void cef_string_userfree_utf16_free(cef_string_userfree_utf16_t str) {
    ledger::book().entered("cef_string_userfree_utf16_free");
    if (!str) return;
    fake::clear(str);
    ledger::book().died("given string");
    delete str;
}
