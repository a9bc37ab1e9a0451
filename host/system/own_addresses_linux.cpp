// host/system/own_addresses_linux.cpp - Linux half of host/system/own_addresses.h. Windows half:
// host/system/own_addresses_win.cpp.
#include "host/system/own_addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <utility>

namespace pennywort::host {

namespace {

// Empty for an address of another kind.
std::string text_of(const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return ::inet_ntop(AF_INET, &four.sin_addr, text, sizeof text) != nullptr ? text : "";
    }
    if (address.sa_family != AF_INET6) return {};
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    return ::inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text) != nullptr ? text : "";
}

}  // namespace

std::vector<interface_address> interface_addresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(first, ::freeifaddrs);
    std::vector<interface_address> found;
    for (const ifaddrs* one = all.get(); one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr) continue;
        std::string text = text_of(*one->ifa_addr);
        if (text.empty()) continue;
        const unsigned flags = one->ifa_flags;
        found.push_back({std::move(text), (flags & IFF_UP) != 0, (flags & IFF_LOOPBACK) != 0});
    }
    return found;
}

}  // namespace pennywort::host
