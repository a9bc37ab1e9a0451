// host/system/own_addresses_win.cpp - Windows half of host/system/own_addresses.h. Linux half:
// host/system/own_addresses_linux.cpp.
//
// The system's name server knows the machine's own name with all of its addresses.
#include "host/system/own_addresses.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <memory>

namespace pennywort::host {

namespace {

bool is_of_others(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        constexpr unsigned char k_loopback = 127;
        return four.sin_addr.S_un.S_un_b.s_b1 != k_loopback;
    }
    if (address.sa_family != AF_INET6) return false;
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    return IN6_IS_ADDR_LINKLOCAL(&six.sin6_addr) == 0 && IN6_IS_ADDR_LOOPBACK(&six.sin6_addr) == 0;
}

void add_of(int family, const char* name, std::vector<std::string>& found) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (::getaddrinfo(name, nullptr, &hints, &first) != 0) return;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> all(
        first, [](addrinfo* list) { ::freeaddrinfo(list); });
    for (const addrinfo* one = first; one != nullptr; one = one->ai_next) {
        char text[NI_MAXHOST] = "";
        if (!is_of_others(*one->ai_addr)) continue;
        const auto length = static_cast<socklen_t>(one->ai_addrlen);
        if (::getnameinfo(one->ai_addr, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0)
            found.emplace_back(text);
    }
}

}  // namespace

std::vector<std::string> own_addresses() {
    WSADATA unused;
    if (::WSAStartup(MAKEWORD(2, 2), &unused) != 0) return {};
    std::vector<std::string> found;
    char name[NI_MAXHOST] = "";
    if (::gethostname(name, sizeof name) == 0) {
        add_of(AF_INET, name, found);
        add_of(AF_INET6, name, found);
    }
    ::WSACleanup();
    return found;
}

}  // namespace pennywort::host
