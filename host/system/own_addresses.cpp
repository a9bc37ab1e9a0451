// host/system/own_addresses.cpp - see the header for the contract.
#include "host/system/own_addresses.h"

#include <string_view>

namespace pennywort::host {

namespace {

bool is_ipv6(const std::string& text) { return text.find(':') != std::string::npos; }

// fe80::/10: it means something beside the name of an interface only.
bool is_link_local(std::string_view text) {
    constexpr std::string_view k_third = "89ab";
    return text.substr(0, 2) == "fe" && text.size() > 2 &&
           k_third.find(text[2]) != std::string_view::npos;
}

bool reaches_others(const interface_address& one) {
    return one.is_up && !one.is_loopback && one.text != "::1" && !is_link_local(one.text);
}

}  // namespace

std::vector<std::string> reachable_of(const std::vector<interface_address>& all) {
    std::vector<std::string> found;
    for (const bool wants_ipv6 : {false, true}) {
        for (const interface_address& one : all) {
            if (is_ipv6(one.text) == wants_ipv6 && reaches_others(one)) found.push_back(one.text);
        }
    }
    return found;
}

std::vector<std::string> own_addresses() { return reachable_of(interface_addresses()); }

}  // namespace pennywort::host
