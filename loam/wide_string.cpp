// loam/wide_string.cpp - see the header for the contract.
#include "loam/wide_string.h"

#include "loam/utf.h"

zWideStr::zWideStr(const char* text, std::int32_t length)
    : m_wide(loam::wide_from_utf8_repaired(loam::text_view(text, length))) {}

zWideStr::~zWideStr() = default;

const char16_t* zWideStr::WideStr() const { return m_wide.c_str(); }

std::uint32_t zWideStr::Length() const { return static_cast<std::uint32_t>(m_wide.size()); }
