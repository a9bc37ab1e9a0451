// core/http/proxy_rules.cpp - see the header for the contract.
#include "core/http/proxy_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

#include "core/http/url.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"

namespace pennywort::http {

namespace {

constexpr std::size_t k_ipv4_bytes = 4;
constexpr std::size_t k_ipv6_bytes = 16;

// An address as it goes over the network.
struct address {
    std::array<std::uint8_t, k_ipv6_bytes> bytes{};
    std::size_t size = 0;
};

std::string_view cut(std::string_view& text, char mark) {
    const std::size_t end = std::min(text.find(mark), text.size());
    const std::string_view front = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return front;
}

std::optional<address> ipv4_of(std::string_view text) {
    if (std::count(text.begin(), text.end(), '.') != 3) return std::nullopt;
    address found;
    while (found.size < k_ipv4_bytes) {
        const auto number = text::digits<std::uint8_t>(cut(text, '.'));
        if (!number) return std::nullopt;
        found.bytes[found.size++] = *number;
    }
    return found;
}

// Of text that is known to be a part of an IPv6 address: groups between colons, the last of which
// may be an IPv4 address.
address groups_of(std::string_view text) {
    address found;
    while (!text.empty()) {
        const std::string_view group = cut(text, ':');
        if (const auto dotted = ipv4_of(group)) {
            std::copy_n(dotted->bytes.begin(), k_ipv4_bytes, found.bytes.begin() + found.size);
            found.size += k_ipv4_bytes;
        } else {
            const auto number = text::whole<std::uint16_t>(group, 16).value_or(0);
            found.bytes[found.size++] = static_cast<std::uint8_t>(number >> 8);
            found.bytes[found.size++] = static_cast<std::uint8_t>(number & 0xFF);
        }
    }
    return found;
}

std::optional<address> ipv6_of(std::string_view text) {
    if (!is_ipv6_address(text)) return std::nullopt;
    const std::size_t gap = text.find("::");
    if (gap == std::string_view::npos) return groups_of(text);
    address found = groups_of(text.substr(0, gap));
    const address behind = groups_of(text.substr(gap + 2));
    std::copy_n(behind.bytes.begin(), behind.size,
                found.bytes.end() - static_cast<std::ptrdiff_t>(behind.size));
    found.size = k_ipv6_bytes;
    return found;
}

std::optional<address> address_of(std::string_view text) {
    const auto found = ipv4_of(text);
    return found ? found : ipv6_of(text);
}

bool are_equal(const address& one, const address& other, std::size_t bits) {
    const std::size_t whole = bits / 8;
    if (!std::equal(one.bytes.begin(), one.bytes.begin() + static_cast<std::ptrdiff_t>(whole),
                    other.bytes.begin())) {
        return false;
    }
    const std::size_t rest = bits % 8;
    return rest == 0 || (one.bytes[whole] >> (8 - rest)) == (other.bytes[whole] >> (8 - rest));
}

// "address" or "address/bits".
bool is_network_with(std::string_view entry, const address& host) {
    const bool has_bits = entry.find('/') != std::string_view::npos;
    const auto network = address_of(cut(entry, '/'));
    if (!network || network->size != host.size) return false;
    const std::size_t most = network->size * 8;
    const auto bits = has_bits ? text::digits<std::size_t>(entry) : most;
    return bits && *bits <= most && are_equal(*network, host, *bits);
}

std::string_view without_last_dot(std::string_view name) {
    if (name.ends_with('.')) name.remove_suffix(1);
    return name;
}

// `name` itself, or below it.
bool is_domain_with(std::string_view name, std::string_view host) {
    if (name.starts_with("*.")) name.remove_prefix(1);
    if (name.starts_with('.')) name.remove_prefix(1);
    if (name.empty() || name.size() > host.size()) return false;
    const std::size_t before = host.size() - name.size();
    return text::equal_ignoring_case(host.substr(before), name) &&
           (before == 0 || host[before - 1] == '.');
}

// Takes ":port" and brackets off an entry. False if the entry is for another port.
bool take_port(std::string_view& entry, std::int32_t port) {
    const bool is_literal = entry.starts_with('[');
    const std::size_t close = is_literal ? entry.find(']') : 0;
    if (close == std::string_view::npos) return false;
    const bool has_one_colon = std::count(entry.begin(), entry.end(), ':') == 1;
    const std::size_t colon = is_literal || has_one_colon ? entry.find(':', close) : entry.npos;
    const std::string_view wanted = colon == entry.npos ? "" : entry.substr(colon + 1);
    if (colon != entry.npos && text::digits<std::int32_t>(wanted) != port) return false;
    entry = entry.substr(0, colon);
    if (!is_literal) return true;
    const bool is_whole = close + 1 == entry.size();
    if (is_whole) entry = entry.substr(1, close - 1);
    return is_whole;
}

bool holds(std::string_view entry, std::string_view host, std::int32_t port) {
    if (entry == "*") return true;
    if (!take_port(entry, port)) return false;
    if (const auto number = address_of(host)) return is_network_with(entry, *number);
    return is_domain_with(without_last_dot(entry), without_last_dot(host));
}

}  // namespace

std::string_view proxy_server(std::string_view servers, bool is_secure) {
    const std::string_view wanted = is_secure ? "https" : "http";
    while (!servers.empty()) {
        const std::string_view whole = text::trimmed(cut(servers, ';'));
        std::string_view entry = whole;
        const bool has_scheme = entry.find('=') != std::string_view::npos;
        const std::string_view scheme = cut(entry, '=');
        if (!has_scheme && !whole.empty()) return whole;
        if (has_scheme && text::equal_ignoring_case(scheme, wanted)) return entry;
    }
    return {};
}

bool is_bypassed(std::string_view host, std::int32_t port, std::string_view bypass) {
    constexpr std::string_view k_between = ",; \t\r\n";
    while (!bypass.empty()) {
        const std::size_t end = std::min(bypass.find_first_of(k_between), bypass.size());
        if (end > 0 && holds(bypass.substr(0, end), host, port)) return true;
        bypass.remove_prefix(std::min(end + 1, bypass.size()));
    }
    return false;
}

}  // namespace pennywort::http
