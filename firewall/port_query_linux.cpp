// port_query_linux.cpp - Linux half of port_query.h. Windows half: port_query_win.cpp.
//
// The rules are read from the kernel itself, not through a library: libnftables needs three times
// the bound of a query to list 5,000 rules, does not say what a match of iptables is set to, and
// ends the process where it has no memory.
#include "firewall/port_query.h"

#include <cstdint>

#include "firewall/chain_walk.h"
#include "firewall/nf_link.h"
#include "firewall/rule_reader.h"
#include "firewall/ways_in.h"

namespace pennywort::firewall {

namespace {

constexpr long k_highest_port = 65535;

}  // namespace

void start_thread() {}
void end_thread() {}

port_answer ask(long port, ip_family family) {
    if (port < 1 || port > k_highest_port) {
        return {port_state::unknown, std::to_string(port) + " is no port"};
    }
    const auto link = nf_link::open();
    if (!link) return {port_state::unknown, link.text()};
    const auto rules = read_rules(*link.value());
    if (!rules) return {port_state::unknown, rules.text()};
    return judge(rules.value(), ways_of(family, ways_in()), static_cast<std::uint16_t>(port));
}

}  // namespace pennywort::firewall
