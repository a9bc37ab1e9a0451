// host/system/own_addresses.h - by which addresses others reach this machine. The system's half is
// own_addresses_linux.cpp or own_addresses_win.cpp.
#pragma once

#include <string>
#include <vector>

namespace pennywort::host {

// The numeric addresses by which other machines can reach this one, without loopback and link-local
// ones, IPv4 first; empty where it has none or the system does not tell.
std::vector<std::string> own_addresses();

}  // namespace pennywort::host
