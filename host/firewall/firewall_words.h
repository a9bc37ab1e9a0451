// host/firewall/firewall_words.h - what the program says of the firewall and a port.
#pragma once

#include <cstdint>
#include <string>

#include "firewall.h"

namespace pennywort::host {

struct port_report {
    std::int32_t port = 0;
    cFirewallAnswer answer = cFirewallAnswer::Unknown;
    std::string why;
    cFirewallFamily family = cFirewallFamily::Any;  // that was asked for
    // Of a port that is let in over one protocol: the other, where that is blocked; then `why` is
    // its reason. Else Any.
    cFirewallFamily blocked_family = cFirewallFamily::Any;
};

// Asks on this thread, which needs nothing for it.
port_report ask_about_port(std::int32_t port, cFirewallFamily family);
// The protocol by which others come to a program that listens on this address. Any: by both.
cFirewallFamily family_of(const std::string& address);

std::string words_for(const port_report& report);
std::string json_line(const port_report& report);
int exit_status_of(const port_report& report);

// What a program that listens on this address and port tells its user; empty where nothing stands
// in the way of others, as far as anybody can tell, or where only this machine is listened to.
std::string listening_warning(const std::string& address, const port_report& report);

}  // namespace pennywort::host
