// core/boyer_moore.cpp - byte search of include/utils.h. No clock, no I/O, no system header.
//
// Every way to search answers the first place, so the quickest one for the pattern is taken. A long
// pattern is looked for in strides: four bytes in a row that do not occur in it rule out, in one
// look, all places that cover them, nearly as many as the pattern has bytes. These looks do not
// wait for each other, as the jumps of Boyer and Moore do.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "utils.h"

namespace {

constexpr std::int64_t k_gram = 4;
// Below this a stride rules out too little to be worth its look.
constexpr std::int32_t k_strides_from = 16;
// Looks that are taken together.
constexpr std::int64_t k_looks = 8;
constexpr std::int64_t k_block = 16;

std::uint32_t gram_slot(const unsigned char* gram) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, gram, sizeof bytes);
    // The golden ratio spreads neighbouring values; the highest bits are the best mixed.
    return bytes * 2654435761u >> 20;
}

__m128i load(const unsigned char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

__m128i repeated(unsigned char byte) { return _mm_set1_epi8(static_cast<char>(byte)); }

}  // namespace

cBoyerMoore::cBoyerMoore(const void* pattern, std::int32_t length)
    : m_pattern(static_cast<const unsigned char*>(pattern)), m_length(length) {
    std::fill(std::begin(m_skip), std::end(m_skip), length);
    std::fill(std::begin(m_grams), std::end(m_grams), std::uint8_t{0});
    if (pattern == nullptr || length < 1 || length > k_longest) {
        m_pattern = nullptr;
        return;
    }
    for (std::int32_t i = 0; i < length - 1; ++i) m_skip[m_pattern[i]] = length - 1 - i;
    choose_probes();
    mark_grams();
}

// What is rare in the pattern keeps runs of its other bytes from looking like it.
void cBoyerMoore::choose_probes() {
    std::array<std::int32_t, 256> counts{};
    for (std::int32_t i = 0; i < m_length; ++i) ++counts[m_pattern[i]];
    const auto is_rarer = [&](std::int32_t a, std::int32_t b) {
        return counts[m_pattern[a]] < counts[m_pattern[b]];
    };
    m_probes[0] = 0;
    m_probes[1] = m_length - 1;
    for (std::int32_t i = 1; i < m_length; ++i) {
        if (is_rarer(i, m_probes[0])) m_probes[0] = i;
    }
    for (std::int32_t i = m_length - 1; i >= 0; --i) {
        if (i != m_probes[0] && is_rarer(i, m_probes[1])) m_probes[1] = i;
    }
}

void cBoyerMoore::mark_grams() {
    for (std::int32_t i = 0; i + k_gram <= m_length; ++i) m_grams[gram_slot(m_pattern + i)] = 1;
}

bool cBoyerMoore::may_contain(const unsigned char* gram) const {
    return m_grams[gram_slot(gram)] != 0;
}

bool cBoyerMoore::is_at(const unsigned char* text) const {
    return std::memcmp(text, m_pattern, static_cast<std::size_t>(m_length)) == 0;
}

std::int32_t cBoyerMoore::FindIn(const void* text, std::int32_t length) const {
    if (text == nullptr || m_pattern == nullptr || m_length > length) return -1;
    const auto* bytes = static_cast<const unsigned char*>(text);
    const std::int64_t starts = std::int64_t{length} - m_length + 1;
    const std::int64_t found = m_length >= k_strides_from ? find_by_strides(bytes, starts)
                                                          : find_by_probes(bytes, 0, starts);
    return static_cast<std::int32_t>(found);
}

// The four bytes that end the pattern if it stands at `start` belong to it as well at each of the
// next stride - 1 places.
std::int64_t cBoyerMoore::find_by_strides(const unsigned char* text, std::int64_t starts) const {
    const std::int64_t stride = m_length - k_gram + 1;
    const unsigned char* const grams = text + m_length - k_gram;
    std::int64_t start = 0;
    for (; start + k_looks * stride <= starts; start += k_looks * stride) {
        unsigned hits = 0;
        for (std::int64_t i = 0; i < k_looks; ++i) {
            hits |= m_grams[gram_slot(grams + start + i * stride)];
        }
        if (hits == 0) [[likely]]
            continue;
        for (std::int64_t at = start; at < start + k_looks * stride; at += stride) {
            if (!may_contain(grams + at)) continue;
            const std::int64_t found = find_by_probes(text, at, at + stride);
            if (found >= 0) return found;
        }
    }
    return find_by_probes(text, start, starts);
}

// Looks at 16 places at once, for both rare bytes.
std::int64_t cBoyerMoore::find_by_probes(const unsigned char* text, std::int64_t from,
                                         std::int64_t to) const {
    const __m128i first = repeated(m_pattern[m_probes[0]]);
    const __m128i second = repeated(m_pattern[m_probes[1]]);
    std::int64_t start = from;
    for (; start + k_block <= to; start += k_block) {
        const __m128i hits =
            _mm_and_si128(_mm_cmpeq_epi8(first, load(text + start + m_probes[0])),
                          _mm_cmpeq_epi8(second, load(text + start + m_probes[1])));
        auto places = static_cast<unsigned>(_mm_movemask_epi8(hits));
        for (; places != 0; places &= places - 1) {
            const std::int64_t at = start + std::countr_zero(places);
            if (is_at(text + at)) return at;
        }
    }
    return find_by_skips(text, start, to);
}

// Horspool's way: the byte under the pattern's last one says how far the pattern can jump.
std::int64_t cBoyerMoore::find_by_skips(const unsigned char* text, std::int64_t from,
                                        std::int64_t to) const {
    for (std::int64_t start = from; start < to; start += m_skip[text[start + m_length - 1]]) {
        if (is_at(text + start)) return start;
    }
    return -1;
}
