// proxy_rules.h - which proxy a request takes, by lists as users write them. No clock, no I/O, no
// name is looked up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::http {

// The server for connections with or without TLS out of "http=server;https=server", or the one
// without a scheme, "server"; empty if there is none.
std::string_view proxy_server(std::string_view servers, bool is_secure);

// Whether `bypass` holds `host`: a list with commas, semicolons or blanks between. In it
//     *              is every host,
//     example.org    is that name and all below it, and so are .example.org and *.example.org,
//     192.0.2.7      is that address, [2001:db8::1] and 2001:db8::1 too,
//     10.0.0.0/8     is a network, fd00::/8 too,
//     example.org:81 is that name with that port alone.
// In any case of the letters, and whether a dot ends a name or not. What is none of these holds
// nothing. `host` stands without brackets.
bool is_bypassed(std::string_view host, std::int32_t port, std::string_view bypass);

}  // namespace pennywort::http
