// host/system/own_addresses_win.cpp - Windows half of host/system/own_addresses.h. Linux half:
// host/system/own_addresses_linux.cpp.
#include "host/system/own_addresses.h"

#include <winsock2.h>
#include <ws2tcpip.h>

// After winsock2.h, whose types it needs.
#include <iphlpapi.h>

#include <cstddef>
#include <memory>
#include <utility>

namespace pennywort::host {

namespace {

constexpr ULONG k_flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST |
                          GAA_FLAG_SKIP_DNS_SERVER | GAA_FLAG_SKIP_FRIENDLY_NAME;

// The adapters of one family; null where the system tells of none. They may become more between two
// calls, of which the first returns the size that the second needs.
std::unique_ptr<std::byte[]> adapters_of(ULONG family) {
    ULONG size = 16 * 1024;
    for (int i = 0; i < 3; ++i) {
        auto room = std::make_unique<std::byte[]>(size);
        auto* const first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(room.get());
        const ULONG error = ::GetAdaptersAddresses(family, k_flags, nullptr, first, &size);
        if (error == ERROR_SUCCESS) return room;
        if (error != ERROR_BUFFER_OVERFLOW) return nullptr;
    }
    return nullptr;
}

// Empty for one that the system cannot write.
std::string text_of(const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return ::inet_ntop(AF_INET, &four.sin_addr, text, sizeof text) != nullptr ? text : "";
    }
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    return ::inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text) != nullptr ? text : "";
}

void add_of(const IP_ADAPTER_ADDRESSES& adapter, std::vector<interface_address>& found) {
    for (const auto* at = adapter.FirstUnicastAddress; at != nullptr; at = at->Next) {
        std::string text = text_of(*at->Address.lpSockaddr);
        if (text.empty()) continue;
        found.push_back({std::move(text), adapter.OperStatus == IfOperStatusUp,
                         adapter.IfType == IF_TYPE_SOFTWARE_LOOPBACK});
    }
}

}  // namespace

std::vector<interface_address> interface_addresses() {
    std::vector<interface_address> found;
    for (const ULONG family : {ULONG{AF_INET}, ULONG{AF_INET6}}) {
        const auto all = adapters_of(family);
        if (all == nullptr) continue;
        const auto* one = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(all.get());
        for (; one != nullptr; one = one->Next) add_of(*one, found);
    }
    return found;
}

}  // namespace pennywort::host
