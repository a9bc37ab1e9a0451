// url_parts.h - a WebSocket URL taken apart as leniently as hosts of the system transport are told.
// No clock, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::websocket {

struct url_parts {
    std::string scheme;
    std::string host;       // of an address in brackets without them, where those count
    std::int32_t port = 0;  // 0: none is written
    std::string path;       // from the first "/" on, with the query; may be empty

    // "wss" and "https", in these letters.
    bool is_secure() const { return scheme == "wss" || scheme == "https"; }
    // The one that is written, or else 443 or 80.
    std::int32_t port_to_use() const;
};

// Nothing without "://". The host ends at the first ":" of the authority; the digits behind it are
// the port, whatever follows them.
std::optional<url_parts> split_url(std::string_view url);
// The same, but an address in brackets is the host, with its colons.
std::optional<url_parts> split_url_with_ipv6(std::string_view url);

}  // namespace pennywort::websocket
