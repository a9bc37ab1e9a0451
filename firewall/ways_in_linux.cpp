// ways_in_linux.cpp - see ways_in.h.
#include "firewall/ways_in.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "loam/trace.h"

namespace pennywort::firewall {

namespace {

using address_list = std::unique_ptr<ifaddrs, void (*)(ifaddrs*)>;

address_list all_addresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        const int error = errno;
        zTraceManager::Default()->TraceNote("cFirewall: getifaddrs - failed (err=%d)\n", error);
        first = nullptr;
    }
    return {first, &::freeifaddrs};
}

std::optional<way_in> way_of(const ifaddrs& one) {
    const bool is_up = (one.ifa_flags & IFF_UP) != 0 && (one.ifa_flags & IFF_LOOPBACK) == 0;
    if (!is_up || one.ifa_addr == nullptr) return std::nullopt;
    way_in way;
    way.has_address = true;
    way.interface_name = one.ifa_name;
    way.interface_index = ::if_nametoindex(one.ifa_name);
    if (one.ifa_addr->sa_family == AF_INET) {
        const auto* address = reinterpret_cast<const sockaddr_in*>(one.ifa_addr);
        std::memcpy(way.address.data(), &address->sin_addr, sizeof address->sin_addr);
        return way;
    }
    if (one.ifa_addr->sa_family != AF_INET6) return std::nullopt;
    const auto* address = reinterpret_cast<const sockaddr_in6*>(one.ifa_addr);
    std::memcpy(way.address.data(), &address->sin6_addr, sizeof address->sin6_addr);
    way.is_ip6 = true;
    return way;
}

}  // namespace

std::vector<way_in> ways_in() {
    std::vector<way_in> all;
    const address_list addresses = all_addresses();
    for (const ifaddrs* one = addresses.get(); one != nullptr; one = one->ifa_next) {
        if (const auto way = way_of(*one)) all.push_back(*way);
    }
    if (!all.empty()) return all;
    all.resize(2);
    all.back().is_ip6 = true;
    return all;
}

}  // namespace pennywort::firewall
