// expressions.h - what one rule of the packet filter does with a packet of which not all is known.
#pragma once

#include <vector>

#include "firewall/packet.h"
#include "firewall/rule_set.h"

namespace pennywort::firewall {

enum class verdict_kind : std::uint8_t {
    accept,
    drop,
    jump,       // into another chain and back
    go_to,      // into another chain, and back to where this one was jumped from
    back,       // to where this chain was jumped from
    elsewhere,  // to another address or port, so that these rules tell nothing more
    anything,   // another program decides, or an expression that is not known here
};

struct verdict {
    verdict_kind kind = verdict_kind::anything;
    bytes_view target;  // the chain of a jump
};

struct rule_effect {
    std::vector<verdict> verdicts;  // those that are possible
    bool may_go_on = true;          // to the next rule
};

rule_effect run_rule(const rule& one, const chain& of, const rule_set& all, const packet& what);

}  // namespace pennywort::firewall
