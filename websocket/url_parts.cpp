// websocket/url_parts.cpp - see the header for the contract.
#include "websocket/url_parts.h"

#include "loam/string.h"

namespace pennywort::websocket {

namespace {

// A host in brackets is an IPv6 address; a name cannot hold one.
std::size_t end_of_host(std::string_view authority) {
    const std::size_t bracket = authority.starts_with('[') ? authority.find(']') : authority.npos;
    return authority.find(':', bracket == authority.npos ? 0 : bracket);
}

std::string_view without_brackets(std::string_view host) {
    const bool is_literal = host.size() >= 2 && host.front() == '[' && host.back() == ']';
    return is_literal ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

std::int32_t url_parts::port_to_use() const {
    if (port != 0) return port;
    return is_secure() ? 443 : 80;
}

std::optional<url_parts> split_url(std::string_view url) {
    const std::size_t colon = url.find("://");
    if (colon == url.npos) return std::nullopt;
    const std::string_view rest = url.substr(colon + 3);
    const std::size_t slash = rest.find('/');
    const std::string_view authority = rest.substr(0, slash);
    const std::size_t end = end_of_host(authority);
    url_parts parts;
    parts.scheme = url.substr(0, colon);
    parts.host = without_brackets(authority.substr(0, end));
    if (end != authority.npos)
        parts.port = zString(std::string(authority.substr(end + 1))).AsInt32();
    if (slash != rest.npos) parts.path = rest.substr(slash);
    return parts;
}

}  // namespace pennywort::websocket
