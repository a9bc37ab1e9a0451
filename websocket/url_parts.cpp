// websocket/url_parts.cpp - see the header for the contract.
#include "websocket/url_parts.h"

#include "loam/string.h"

namespace pennywort::websocket {

namespace {

// Where its host ends.
using host_end = std::size_t (*)(std::string_view authority);

std::size_t first_colon(std::string_view authority) { return authority.find(':'); }

// A name cannot begin with a bracket.
std::size_t colon_behind_brackets(std::string_view authority) {
    const std::size_t bracket = authority.starts_with('[') ? authority.find(']') : authority.npos;
    return authority.find(':', bracket == authority.npos ? 0 : bracket);
}

std::string_view without_brackets(std::string_view host) {
    const bool is_literal = host.size() >= 2 && host.front() == '[' && host.back() == ']';
    return is_literal ? host.substr(1, host.size() - 2) : host;
}

std::optional<url_parts> split_at(std::string_view url, host_end end_of_host) {
    const std::size_t colon = url.find("://");
    if (colon == url.npos) return std::nullopt;
    const std::string_view rest = url.substr(colon + 3);
    const std::size_t slash = rest.find('/');
    const std::string_view authority = rest.substr(0, slash);
    const std::size_t end = end_of_host(authority);
    url_parts parts;
    parts.scheme = url.substr(0, colon);
    parts.host = authority.substr(0, end);
    if (end != authority.npos)
        parts.port = zString(std::string(authority.substr(end + 1))).AsInt32();
    if (slash != rest.npos) parts.path = rest.substr(slash);
    return parts;
}

}  // namespace

std::int32_t url_parts::port_to_use() const {
    if (port != 0) return port;
    return is_secure() ? 443 : 80;
}

std::optional<url_parts> split_url(std::string_view url) { return split_at(url, &first_colon); }

std::optional<url_parts> split_url_with_ipv6(std::string_view url) {
    auto parts = split_at(url, &colon_behind_brackets);
    if (parts) parts->host = std::string(without_brackets(parts->host));
    return parts;
}

}  // namespace pennywort::websocket
