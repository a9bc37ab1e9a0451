// core/http/url.cpp - see the header for the contract.
#include "core/http/url.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "core/limits.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "loam/url_parts.h"

namespace pennywort::http {
namespace {

constexpr std::size_t k_groups = 8;  // of 16 bits, in an IPv6 address

bool is_url_byte(char c) { return c > ' ' && c < 0x7f && c != '\\'; }

// RFC 3986's reg-name, without what no name on the network holds.
bool is_host_byte(char c) {
    return text::is_letter(c) || text::is_digit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

bool is_host_name(std::string_view host) {
    return !host.empty() && std::all_of(host.begin(), host.end(), is_host_byte);
}

bool has_good_escapes(std::string_view text) {
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 1)) {
        const bool is_good = at + 2 < text.size() && text::hex_value(text[at + 1]) >= 0 &&
                             text::hex_value(text[at + 2]) >= 0;
        if (!is_good) return false;
    }
    return true;
}

// Nothing for a port that is none. "http://host:/" has the scheme's own, as RFC 3986 allows.
std::optional<std::uint16_t> port_of(const loam::url_parts& parts, std::uint16_t otherwise) {
    if (parts.port.empty()) return otherwise;
    const bool has_sign = !text::is_digit(parts.port.front());
    const auto port = text::whole<std::uint16_t>(parts.port);
    return has_sign || !port || *port == 0 ? std::nullopt : port;
}

bool is_ipv4_address(std::string_view text) {
    for (int i = 0; i < 4; ++i) {
        const std::size_t dot = std::min(text.find('.'), text.size());
        const std::string_view number = text.substr(0, dot);
        const bool is_last = i == 3;
        if ((dot == text.size()) != is_last || number.size() > 3) return false;
        const bool has_zero_first = number.size() > 1 && number.front() == '0';
        if (has_zero_first || !text::digits<std::uint8_t>(number)) return false;
        text.remove_prefix(std::min(text.size(), dot + 1));
    }
    return text.empty();
}

bool is_group(std::string_view text) {
    return !text.empty() && text.size() <= 4 &&
           std::all_of(text.begin(), text.end(), [](char c) { return text::hex_value(c) >= 0; });
}

// Groups between single colons; an IPv4 address may stand for the last two. Nothing if one is none.
std::optional<std::size_t> count_groups(std::string_view text) {
    std::size_t count = 0;
    while (!text.empty()) {
        const std::size_t colon = std::min(text.find(':'), text.size());
        const std::string_view group = text.substr(0, colon);
        const bool is_last = colon == text.size();
        if (is_last && is_ipv4_address(group)) return count + 2;
        if (!is_group(group)) return std::nullopt;
        ++count;
        text.remove_prefix(std::min(text.size(), colon + 1));
        if (!is_last && text.empty()) return std::nullopt;
    }
    return count;
}

url_fault fault_of_host(const loam::url_parts& parts) {
    if (parts.is_literal) {
        const bool is_good = !parts.is_unbalanced && is_ipv6_address(parts.host);
        return is_good ? url_fault::none : url_fault::bad_literal;
    }
    if (parts.host.empty()) return url_fault::no_host;
    return is_host_name(parts.host) ? url_fault::none : url_fault::bad_host;
}

url_fault fault_of(std::string_view text, const loam::url_parts& parts, user_info policy) {
    if (text.size() > k_max_url_bytes) return url_fault::too_long;
    if (!std::all_of(text.begin(), text.end(), is_url_byte)) return url_fault::bad_byte;
    if (!parts.has_scheme || parts.scheme.empty()) return url_fault::no_scheme;
    if (default_port(parts.scheme) == 0) return url_fault::foreign_scheme;
    if (!parts.has_authority) return url_fault::no_host;
    if (parts.has_user_info && policy == user_info::refused) return url_fault::has_user_info;
    const url_fault of_host = fault_of_host(parts);
    if (of_host != url_fault::none) return of_host;
    if (!port_of(parts, default_port(parts.scheme))) return url_fault::bad_port;
    return has_good_escapes(text) ? url_fault::none : url_fault::bad_escape;
}

}  // namespace

std::uint16_t default_port(std::string_view scheme) {
    using text::equal_ignoring_case;
    if (equal_ignoring_case(scheme, "http") || equal_ignoring_case(scheme, "ws")) return 80;
    if (equal_ignoring_case(scheme, "https") || equal_ignoring_case(scheme, "wss")) return 443;
    return 0;
}

std::string url::target() const { return has_query ? path + '?' + query : path; }

std::string url::authority() const {
    std::string text = is_ipv6 ? '[' + host + ']' : host;
    if (port != default_port(scheme)) text += ':' + std::to_string(port);
    return text;
}

std::string_view words_of(url_fault fault) {
    switch (fault) {
        case url_fault::none:
            return "no fault";
        case url_fault::too_long:
            return "the URL is too long";
        case url_fault::bad_byte:
            return "the URL holds a byte that none may hold";
        case url_fault::no_scheme:
            return "the URL has no scheme";
        case url_fault::foreign_scheme:
            return "the scheme is none of http, https, ws and wss";
        case url_fault::no_host:
            return "the URL has no host";
        case url_fault::bad_host:
            return "the host is no name and no address";
        case url_fault::bad_literal:
            return "what stands in brackets is no IPv6 address";
        case url_fault::bad_port:
            return "the port is not 1 to 65535";
        case url_fault::has_user_info:
            return "the URL names a user";
        case url_fault::bad_escape:
            return "a % has no two hexadecimal digits";
    }
    return "";
}

parsed_url parse_url(std::string_view text, user_info policy) {
    const loam::url_parts parts = loam::split_url(text);
    const url_fault fault = fault_of(text, parts, policy);
    if (fault != url_fault::none) return {url(), fault};
    url value;
    value.scheme = text::lower(parts.scheme);
    value.user_info = parts.user_info;
    value.host = parts.host;
    value.port = port_of(parts, default_port(parts.scheme)).value();
    value.path = parts.path.empty() ? std::string_view("/") : parts.path;
    value.query = parts.query;
    value.fragment = parts.fragment;
    value.has_user_info = parts.has_user_info;
    value.has_query = parts.has_query;
    value.is_ipv6 = parts.is_literal;
    return {std::move(value), url_fault::none};
}

bool is_authority(std::string_view text) {
    if (text.find_first_of("/?#@") != std::string_view::npos) return false;
    loam::url_parts parts;
    loam::split_authority(text, parts);
    return fault_of_host(parts) == url_fault::none && port_of(parts, 80).has_value();
}

bool is_ipv6_address(std::string_view text) {
    const std::size_t gap = text.find("::");
    if (gap == std::string_view::npos) return count_groups(text) == k_groups;
    const auto before = count_groups(text.substr(0, gap));
    const auto after = count_groups(text.substr(gap + 2));
    // An address of four numbers stands at the end only.
    const bool is_dotted_before = text.substr(0, gap).find('.') != std::string_view::npos;
    return before && after && !is_dotted_before && *before + *after < k_groups;
}

}  // namespace pennywort::http
