// chain_walk.h - whether a rule set lets the first packet of a connection in.
#pragma once

#include <cstdint>
#include <vector>

#include "firewall/port_query.h"
#include "firewall/rule_set.h"
#include "firewall/ways_in.h"

namespace pennywort::firewall {

// Those of a family. A machine that has none of it may get one at any moment: then one of which
// nothing else is known.
std::vector<way_in> ways_of(ip_family family, std::vector<way_in> all);

// Blocked when no packet to this port comes through, whichever way it takes; with what stops it on
// the first of them.
port_answer judge(const rule_set& rules, const std::vector<way_in>& ways, std::uint16_t port);

}  // namespace pennywort::firewall
