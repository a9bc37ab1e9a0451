// loam/string.cpp - see the header for the contract.
#include "loam/string.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <utility>

#include "loam/ascii.h"
#include "loam/format_text.h"
#include "loam/number_text.h"
#include "loam/utf.h"

namespace {

std::string_view counted(const char* text, std::uint32_t length) {
    if (text == nullptr) return {};
    if (length == zString::k_to_nul) return text;
    return {text, length};
}

}  // namespace

zString::zString(const char* text, std::uint32_t length) : m_text(counted(text, length)) {}

zString::zString(const char16_t* wide, std::int32_t length)
    : m_text(loam::utf8_from_wide(loam::wide_view(wide, length))) {}

zString::zString(std::string text) : m_text(std::move(text)) {}

zString::zString(zString&& other) noexcept { *this = std::move(other); }

const zString& zString::operator=(zString&& other) noexcept {
    if (this == &other) return *this;
    // Assigning a short text would keep the memory of a long one.
    std::exchange(other.m_text, {}).swap(m_text);
    m_open_ended = std::exchange(other.m_open_ended, false);
    return *this;
}

const zString& zString::operator=(const char* text) {
    SetString(text);
    return *this;
}

const zString& zString::operator=(const zString& other) {
    m_text = other.m_text;
    m_open_ended = other.m_open_ended;
    return *this;
}

const zString& zString::operator=(std::string text) {
    m_text.swap(text);
    m_open_ended = false;
    return *this;
}

const zString& zString::operator+=(const char* text) {
    AddToEnd(text, k_to_nul);
    return *this;
}

const zString& zString::operator+=(const zString& other) {
    AddToEnd(std::string(other.View()));
    return *this;
}

const zString& zString::operator+=(std::string text) {
    AddToEnd(std::move(text));
    return *this;
}

const char* zString::CString() const { return m_text.c_str(); }

std::string_view zString::View() const {
    if (!m_open_ended) return m_text;
    return std::string_view(m_text).substr(0, m_text.find('\0'));
}

std::uint32_t zString::Length() const { return static_cast<std::uint32_t>(View().size()); }

bool zString::Empty() const { return View().empty(); }

std::int32_t zString::AsInt32() const {
    using limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(AsInt64(), limits::min(), limits::max()));
}

std::int64_t zString::AsInt64() const { return loam::leading_int64(View()); }

const char* zString::SetString(const char* text, std::uint32_t length) {
    // In place, so that a string which is used again and again allocates once; `assign` and
    // `append` cope with a text that lies in the string itself.
    m_text.assign(counted(text, length));
    m_open_ended = false;
    return CString();
}

const char* zString::SetWideStr(const char16_t* wide, std::int32_t length) {
    m_text = loam::utf8_from_wide(loam::wide_view(wide, length));
    m_open_ended = false;
    return CString();
}

void zString::AddToEnd(const char* text, std::uint32_t length) {
    const std::string_view more = counted(text, length);
    // What settle() cuts off may be a part of `more`.
    if (m_open_ended) return AddToEnd(std::string(more));
    m_text.append(more);
}

void zString::AddToEnd(std::string text) {
    settle();
    m_text += text;
}

void zString::Prepend(const char* text, std::uint32_t length) {
    std::string front(counted(text, length));
    settle();
    m_text.insert(0, front);
}

char* zString::Preallocate(std::int32_t size) {
    settle();
    if (size > 0 && static_cast<std::size_t>(size) > m_text.size()) {
        m_text.resize(static_cast<std::size_t>(size));
    }
    m_open_ended = true;
    return m_text.data();
}

void zString::SetLength(std::uint32_t length) {
    m_open_ended = false;
    m_text.resize(length);
}

char* zString::sprintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    m_text = format == nullptr ? std::string() : loam::format_text(format, arguments);
    va_end(arguments);
    m_open_ended = false;
    return m_text.data();
}

zString& zString::SplitAtFirst(zString* other, const char* separator) {
    settle();
    const std::string_view cut = counted(separator, k_to_nul);
    const std::size_t at = cut.empty() ? std::string::npos : m_text.find(cut);
    const bool is_found = at != std::string::npos;
    if (other != nullptr) *other = is_found ? m_text.substr(at + cut.size()) : std::string();
    if (is_found) m_text.resize(at);
    return *this;
}

int zString::strncasecmp(const char* a, const char* b, std::int32_t n) {
    const char* left = a != nullptr ? a : "";
    const char* right = b != nullptr ? b : "";
    for (std::int32_t i = 0; i < n; ++i) {
        const auto x = static_cast<unsigned char>(loam::lower(left[i]));
        const auto y = static_cast<unsigned char>(loam::lower(right[i]));
        if (x != y) return x < y ? -1 : 1;
        if (x == 0) return 0;
    }
    return 0;
}

void zString::settle() {
    if (!m_open_ended) return;
    m_text.resize(View().size());
    m_open_ended = false;
}
