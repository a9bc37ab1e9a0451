// url.h - the URLs of http, https, ws and wss. No clock, no I/O, no name is looked up.
//
// A URL that two readers could understand in two ways is refused with a reason and never repaired.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::http {

// 80 for "http" and "ws", 443 for "https" and "wss", 0 for others; in any case of their letters.
std::uint16_t default_port(std::string_view scheme);

struct url {
    std::string scheme;      // in lower case
    std::string user_info;   // before the "@", as it was written
    std::string host;        // as it was written; of a literal address without its brackets
    std::uint16_t port = 0;  // the scheme's own where none is written
    std::string path;        // begins with "/"
    std::string query;       // without its "?"
    std::string fragment;    // without its "#"
    bool has_user_info = false;
    bool has_query = false;
    bool is_ipv6 = false;

    bool is_secure() const { return scheme == "https" || scheme == "wss"; }
    // What the request line asks for: the path and the query.
    std::string target() const;
    // What the Host header says: the host, and the port unless it is the scheme's own.
    std::string authority() const;
};

enum class url_fault {
    none,
    too_long,
    bad_byte,  // a control byte, a blank or one beyond ASCII; a backslash
    no_scheme,
    foreign_scheme,
    no_host,        // no "//", or nothing behind it
    bad_host,       // holds what no name and no address holds
    bad_literal,    // in brackets, and no IPv6 address
    bad_port,       // not 1 to 65535
    has_user_info,  // unless it is allowed: it makes one host look like another
    bad_escape      // "%" without two hexadecimal digits
};

// In words, for a trace.
std::string_view words_of(url_fault fault);

enum class user_info { refused, allowed };

struct parsed_url {
    url value;
    url_fault fault = url_fault::none;

    bool is_ok() const { return fault == url_fault::none; }
};

parsed_url parse_url(std::string_view text, user_info policy = user_info::refused);

// Whether `text` is what a Host header may say: a name or an address, and perhaps a port.
bool is_authority(std::string_view text);
// An IPv6 address as RFC 4291 writes it, without brackets and without a zone.
bool is_ipv6_address(std::string_view text);

}  // namespace pennywort::http
