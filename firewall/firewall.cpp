// firewall.cpp - see include/firewall.h for the contract. The system's part is in port_query.h.
#include "firewall.h"

#include "core/run/guarded.h"
#include "firewall/port_query.h"
#include "loam/trace.h"

namespace {

namespace inner = pennywort::firewall;

constexpr const char* k_class = "cFirewall";

cFirewallAnswer public_answer(inner::port_state state) {
    switch (state) {
        case inner::port_state::open:
            return cFirewallAnswer::Open;
        case inner::port_state::blocked:
            return cFirewallAnswer::Blocked;
        case inner::port_state::unknown:
            break;
    }
    return cFirewallAnswer::Unknown;
}

inner::ip_family inner_family(cFirewallFamily family) {
    switch (family) {
        case cFirewallFamily::IPv4:
            return inner::ip_family::ip4;
        case cFirewallFamily::IPv6:
            return inner::ip_family::ip6;
        case cFirewallFamily::Any:
            break;
    }
    return inner::ip_family::any;
}

}  // namespace

void cFirewall::Startup() {
    pennywort::run::guarded(k_class, "the start", [] { inner::start_thread(); });
}

void cFirewall::Shutdown() {
    pennywort::run::guarded(k_class, "the end", [] { inner::end_thread(); });
}

bool cFirewall::IsTCPPortFirewalled(long port) {
    return pennywort::run::guarded_or(false, k_class, "the query", [port] {
        const inner::port_answer answer = inner::ask(port, inner::ip_family::any);
        if (answer.state != inner::port_state::unknown) {
            return answer.state == inner::port_state::blocked;
        }
        zTraceManager::Default()->TraceNote("cFirewall: port %ld counts as not blocked: %s\n", port,
                                            answer.why.c_str());
        return false;
    });
}

cFirewallAnswer cFirewall::QueryTCPPort(long port, zString& why) {
    return QueryTCPPort(port, cFirewallFamily::Any, why);
}

cFirewallAnswer cFirewall::QueryTCPPort(long port, cFirewallFamily family, zString& why) {
    return pennywort::run::guarded_or(cFirewallAnswer::Unknown, k_class, "the query", [&] {
        why = "";
        const inner::port_answer answer = inner::ask(port, inner_family(family));
        why = answer.why.c_str();
        return public_answer(answer.state);
    });
}
