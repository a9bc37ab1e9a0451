// host/system/own_addresses_linux.cpp - Linux half of host/system/own_addresses.h. Windows half:
// host/system/own_addresses_win.cpp.
#include "host/system/own_addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>

namespace pennywort::host {

namespace {

// Empty for an address that others cannot use, or of another family.
std::string text_of(const sockaddr& address, int family) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family != family) return {};
    if (family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return ::inet_ntop(family, &four.sin_addr, text, sizeof text) != nullptr ? text : "";
    }
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    if (IN6_IS_ADDR_LINKLOCAL(&six.sin6_addr) || IN6_IS_ADDR_LOOPBACK(&six.sin6_addr)) return {};
    return ::inet_ntop(family, &six.sin6_addr, text, sizeof text) != nullptr ? text : "";
}

bool reaches_others(const ifaddrs& one) {
    return one.ifa_addr != nullptr && (one.ifa_flags & IFF_UP) != 0 &&
           (one.ifa_flags & IFF_LOOPBACK) == 0;
}

}  // namespace

std::vector<std::string> own_addresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(first, ::freeifaddrs);
    std::vector<std::string> found;
    for (const int family : {AF_INET, AF_INET6}) {
        for (const ifaddrs* one = all.get(); one != nullptr; one = one->ifa_next) {
            if (!reaches_others(*one)) continue;
            std::string text = text_of(*one->ifa_addr, family);
            if (!text.empty()) found.push_back(std::move(text));
        }
    }
    return found;
}

}  // namespace pennywort::host
