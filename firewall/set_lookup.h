// set_lookup.h - which elements of a set a packet may meet.
#pragma once

#include <vector>

#include "firewall/known_bytes.h"
#include "firewall/rule_set.h"

namespace pennywort::firewall {

struct found_element {
    const set_element* element = nullptr;
    truth is_met = truth::maybe;
};

// Looks up the key that begins at `place`. Those that may be met go into `found`, where that is not
// null. Returns whether any is met.
truth look_up(const rule_element_set& all, const registers& from, std::size_t place,
              std::vector<found_element>* found);

}  // namespace pennywort::firewall
