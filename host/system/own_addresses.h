// host/system/own_addresses.h - by which addresses others reach this machine. The system's half is
// own_addresses_linux.cpp or own_addresses_win.cpp; what is made of that stands in
// own_addresses.cpp.
#pragma once

#include <string>
#include <vector>

namespace pennywort::host {

// An address of one of the machine's interfaces.
struct interface_address {
    std::string text;  // numeric
    bool is_up = true;
    bool is_loopback = false;  // of the interface
};

// All of them, in the system's order; empty where the system does not tell.
std::vector<interface_address> interface_addresses();

// Those among them that own_addresses returns.
std::vector<std::string> reachable_of(const std::vector<interface_address>& all);

// The numeric addresses by which other machines can reach this one, without loopback and link-local
// ones, IPv4 first; empty where it has none or the system does not tell.
std::vector<std::string> own_addresses();

}  // namespace pennywort::host
