// set_lookup.cpp - see the header for the contract.
#include "firewall/set_lookup.h"

#include <linux/netfilter/nf_tables.h>

#include <algorithm>

namespace pennywort::firewall {

namespace {

constexpr std::size_t k_word = 4;

bool has_flag(const set_element& one, std::uint32_t flag) { return (one.flags & flag) != 0; }

// The part of a key that one of its fields takes up; shorter where the key is cut.
bytes_view part_of(bytes_view key, std::size_t offset, std::size_t length) {
    return offset < key.size() ? key.substr(offset, length) : bytes_view();
}

// Each field of a joined key lies between the same field of both ends.
truth is_in_fields(const rule_element_set& all, const set_element& one, const registers& from,
                   std::size_t place) {
    truth so = truth::yes;
    std::size_t offset = 0;
    for (const std::size_t length : all.fields) {
        const bytes_view low = part_of(one.key, offset, length);
        const bytes_view high = part_of(one.key_end, offset, length);
        if (low.size() != length || high.size() != length) return truth::maybe;
        so = both(so, is_between(from, place + offset, low, high));
        offset += (length + k_word - 1) / k_word * k_word;
    }
    return so;
}

truth is_met(const rule_element_set& all, const set_element& one, const registers& from,
             std::size_t place) {
    if (one.key_end.empty()) return is_equal(from, place, one.key);
    if (!all.fields.empty()) return is_in_fields(all, one, from, place);
    return one.key_end.size() == one.key.size() ? is_between(from, place, one.key, one.key_end)
                                                : truth::maybe;
}

// An interval begins with its element and ends before the next; the last may have no end.
truth is_in_interval(const set_element& one, const set_element* next, const registers& from,
                     std::size_t place) {
    const truth is_behind = not_so(is_less(from, place, one.key));
    return next == nullptr ? is_behind : both(is_behind, is_less(from, place, next->key));
}

class lookup {
public:
    lookup(const rule_element_set& all, const registers& from, std::size_t place,
           std::vector<found_element>* found)
        : m_all(all), m_from(from), m_place(place), m_found(found) {}

    truth run() {
        const bool has_intervals = (m_all.flags & NFT_SET_INTERVAL) != 0 && m_all.fields.size() < 2;
        for (std::size_t i = 0; i < m_all.elements.size() && m_met != truth::yes; ++i) {
            const set_element& one = m_all.elements[i];
            if (one.key.empty()) continue;
            if (!has_intervals || !one.key_end.empty()) {
                take(one, is_met(m_all, one, m_from, m_place));
            } else if (!has_flag(one, NFT_SET_ELEM_INTERVAL_END)) {
                take(one, is_in_interval(one, next_key(i), m_from, m_place));
            }
        }
        for (const set_element& one : m_all.elements) {
            if (one.key.empty()) take_rest(one);
        }
        return m_met;
    }

private:
    const set_element* next_key(std::size_t i) const {
        return i + 1 < m_all.elements.size() ? &m_all.elements[i + 1] : nullptr;
    }
    void take(const set_element& one, truth so) {
        if (one.has_condition) so = both(so, truth::maybe);
        if (so == truth::no) return;
        if (m_found != nullptr) m_found->push_back({&one, so});
        m_met = std::max(m_met, so);
    }
    // The element for whatever meets no other one.
    void take_rest(const set_element& one) {
        if (has_flag(one, NFT_SET_ELEM_CATCHALL)) take(one, not_so(m_met));
    }

    const rule_element_set& m_all;
    const registers& m_from;
    const std::size_t m_place;
    std::vector<found_element>* const m_found;
    truth m_met = truth::no;
};

}  // namespace

truth look_up(const rule_element_set& all, const registers& from, std::size_t place,
              std::vector<found_element>* found) {
    return lookup(all, from, place, found).run();
}

}  // namespace pennywort::firewall
