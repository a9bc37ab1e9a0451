// ways_in.h - where packets of other machines come in: the machine's own addresses, each on its
// interface. Its one half is ways_in_linux.cpp: on Windows the firewall manager knows them itself.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace pennywort::firewall {

struct way_in {
    bool is_ip6 = false;
    // Empty, and 0: not known.
    std::string interface_name;
    std::uint32_t interface_index = 0;
    bool has_address = false;
    std::array<std::uint8_t, 16> address{};  // of IPv4 the first four
};

// Those of the interfaces that are up, loopback apart. A machine that has none may get one at any
// moment: then one of either protocol, of which nothing else is known.
std::vector<way_in> ways_in();

}  // namespace pennywort::firewall
