// xtables.h - the matches and targets of iptables, as its nftables variant puts them into rules.
#pragma once

#include "firewall/known_bytes.h"
#include "firewall/packet.h"

namespace pennywort::firewall {

// Whether a packet meets a match. Of matches that are not read here: maybe.
truth meets_match(bytes_view match, const packet& what);

enum class target_effect { none, drops, leads_elsewhere, anything };
target_effect effect_of_target(bytes_view target);

}  // namespace pennywort::firewall
