// rule_reader.h - reads the whole rule set of the packet filter, as it was at one moment.
#pragma once

#include "core/outcome.h"
#include "firewall/nf_link.h"
#include "firewall/rule_set.h"

namespace pennywort::firewall {

outcome<rule_set> read_rules(nf_link& link);

}  // namespace pennywort::firewall
