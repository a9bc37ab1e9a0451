// core/boyer_moore.cpp - byte search of include/utils.h. No clock, no I/O, no system header.
//
// Every way to search returns the first place, so the quickest one for the pattern and the text is
// taken. A short text is searched by the skip table. A long pattern in a long text is looked for in
// strides: four bytes in a row that do not occur in it rule out, in one look, all places that cover
// them, nearly as many as the pattern has bytes. These looks do not wait for each other, as the
// jumps of Boyer and Moore do. What these ways need beside the skip table is made for each search
// and lies on the stack: the class has the three fields that hosts know.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>

#include "utils.h"

namespace {

constexpr std::int32_t k_longest = 255;
constexpr std::int64_t k_gram = 4;
// Below this a stride rules out too little to be worth its look.
constexpr std::int32_t k_strides_from = 16;
// Looks that are taken together.
constexpr std::int64_t k_looks = 8;
constexpr std::int64_t k_block = 16;
// Texts with fewer places than these are searched before the preparation would be done.
constexpr std::int64_t k_probes_from = 256;
constexpr std::int64_t k_strides_worth_it_from = 4096;

__m128i load(const unsigned char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

__m128i repeated(unsigned char byte) { return _mm_set1_epi8(static_cast<char>(byte)); }

// What is to be found, and the text. A place is where the pattern may begin, from 0 on.
struct search {
    const unsigned char* pattern;
    std::int64_t length;
    const std::int32_t* skip;
    const unsigned char* text;

    bool is_at(std::int64_t place) const {
        return std::memcmp(text + place, pattern, static_cast<std::size_t>(length)) == 0;
    }
};

// Horspool's way: the byte under the pattern's last one says how far the pattern can jump.
std::int64_t find_by_skips(const search& one, std::int64_t from, std::int64_t to) {
    for (std::int64_t at = from; at < to; at += one.skip[one.text[at + one.length - 1]]) {
        if (one.is_at(at)) return at;
    }
    return -1;
}

// Two places of the pattern whose bytes are rare in it: what is rare keeps runs of its other bytes
// from looking like it.
class probes {
public:
    explicit probes(const search& one) : m_first(0), m_second(one.length - 1) {
        std::array<std::uint8_t, 256> counts{};
        for (std::int64_t i = 0; i < one.length; ++i) ++counts[one.pattern[i]];
        const auto count_at = [&](std::int64_t i) { return counts[one.pattern[i]]; };
        for (std::int64_t i = 1; i < one.length; ++i) {
            if (count_at(i) < count_at(m_first)) m_first = i;
        }
        for (std::int64_t i = one.length - 1; i >= 0; --i) {
            if (i != m_first && count_at(i) < count_at(m_second)) m_second = i;
        }
    }

    std::int64_t find(const search& one, std::int64_t from, std::int64_t to) const {
        const pair wanted{one.text + m_first, one.text + m_second, repeated(one.pattern[m_first]),
                          repeated(one.pattern[m_second])};
        std::int64_t start = wanted.next_block(from, to);
        for (; start + k_block <= to; start = wanted.next_block(start + k_block, to)) {
            for (unsigned places = wanted.places_at(start); places != 0; places &= places - 1) {
                const std::int64_t at = start + std::countr_zero(places);
                if (one.is_at(at)) return at;
            }
        }
        return find_by_skips(one, start, to);
    }

private:
    // Looks at 16 places at once, for both bytes.
    struct pair {
        const unsigned char* at_first;
        const unsigned char* at_second;
        __m128i first;
        __m128i second;

        __m128i hits_at(std::int64_t place) const {
            return _mm_and_si128(_mm_cmpeq_epi8(first, load(at_first + place)),
                                 _mm_cmpeq_epi8(second, load(at_second + place)));
        }
        unsigned places_at(std::int64_t place) const {
            return static_cast<unsigned>(_mm_movemask_epi8(hits_at(place)));
        }
        // Calls nothing, so that both bytes stay in registers. The block that it stops at, or the
        // one behind, may hold the pattern, or the text ends.
        std::int64_t next_block(std::int64_t place, std::int64_t to) const {
            for (; place + 2 * k_block <= to; place += 2 * k_block) {
                const __m128i both = _mm_or_si128(hits_at(place), hits_at(place + k_block));
                if (_mm_movemask_epi8(both) != 0) break;
            }
            return place;
        }
    };

    std::int64_t m_first;
    std::int64_t m_second;
};

// By hash, whether four bytes in a row may occur in the pattern.
class grams {
public:
    explicit grams(const search& one) {
        const unsigned char* const end = one.pattern + one.length - k_gram + 1;
        for (const unsigned char* at = one.pattern; at < end; ++at) m_marks[slot(at)] = 1;
    }

    // 0 if they do not.
    unsigned mark(const unsigned char* gram) const { return m_marks[slot(gram)]; }

private:
    static std::uint32_t slot(const unsigned char* gram) {
        std::uint32_t bytes = 0;
        std::memcpy(&bytes, gram, sizeof bytes);
        // The golden ratio spreads neighbouring values; the highest bits are the best mixed.
        return bytes * 2654435761u >> 20;
    }

    std::array<std::uint8_t, 4096> m_marks{};
};

// The way to look closer at a few places. Preparing the probes pays only where many places look
// like the pattern.
class closer_look {
public:
    explicit closer_look(const search& one) : m_search(one) {}

    std::int64_t find(std::int64_t from, std::int64_t to) {
        if (m_looks < k_looks_by_skips) {
            ++m_looks;
            return find_by_skips(m_search, from, to);
        }
        if (!m_probes) m_probes.emplace(m_search);
        return m_probes->find(m_search, from, to);
    }

private:
    static constexpr int k_looks_by_skips = 8;

    const search m_search;
    int m_looks = 0;
    std::optional<probes> m_probes;
};

// The four bytes that end the pattern if it stands at a place belong to it as well at each of the
// next stride - 1 places.
std::int64_t find_by_strides(const search& one, std::int64_t places) {
    const grams known(one);
    closer_look closer(one);
    const std::int64_t stride = one.length - k_gram + 1;
    const unsigned char* const ends = one.text + one.length - k_gram;
    std::int64_t start = 0;
    for (; start + k_looks * stride <= places; start += k_looks * stride) {
        unsigned hits = 0;
        for (std::int64_t i = 0; i < k_looks; ++i) hits |= known.mark(ends + start + i * stride);
        if (hits == 0) [[likely]]
            continue;
        for (std::int64_t at = start; at < start + k_looks * stride; at += stride) {
            if (known.mark(ends + at) == 0) continue;
            const std::int64_t found = closer.find(at, at + stride);
            if (found >= 0) return found;
        }
    }
    return closer.find(start, places);
}

std::int64_t find_first(const search& one, std::int64_t places) {
    if (places < k_probes_from) return find_by_skips(one, 0, places);
    const bool is_for_strides = one.length >= k_strides_from && places >= k_strides_worth_it_from;
    return is_for_strides ? find_by_strides(one, places) : probes(one).find(one, 0, places);
}

}  // namespace

cBoyerMoore::cBoyerMoore(const void* pattern, std::int32_t length)
    : m_pattern(static_cast<const unsigned char*>(pattern)), m_length(length) {
    std::fill(std::begin(m_skip), std::end(m_skip), length);
    if (pattern == nullptr || length < 1 || length > k_longest) {
        m_pattern = nullptr;
        return;
    }
    for (std::int32_t i = 0; i < length - 1; ++i) m_skip[m_pattern[i]] = length - 1 - i;
}

std::int32_t cBoyerMoore::FindIn(const void* text, std::int32_t length) const {
    if (text == nullptr || m_pattern == nullptr || m_length > length) return -1;
    const search one{m_pattern, m_length, m_skip, static_cast<const unsigned char*>(text)};
    return static_cast<std::int32_t>(find_first(one, std::int64_t{length} - m_length + 1));
}
