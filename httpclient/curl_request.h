// curl_request.h - what libcurl is told of a request, and where a redirect leads. Built where
// libcurl is: WinHTTP does this by itself. No I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/http/head_parser.h"

namespace pennywort::httpclient {

// Where a request goes.
struct request_target {
    std::string host;    // of an IPv6 address without brackets
    std::string object;  // path and query, as they stand in the request
    std::int32_t port = 0;
    bool is_secure = false;

    // "https://host:port", without a port that is the scheme's own.
    std::string origin() const;
    std::string url() const { return origin() + object; }
};

// A line "name: value" as libcurl takes it, for which an empty value is a header to leave out.
// Empty for a line that is no header.
std::string curl_header_line(std::string_view line);

// Whether a block of header lines has a header of that name, in any case of its letters.
bool has_header(std::string_view block, std::string_view name);

// Whether a status sends a request elsewhere.
bool is_redirect(std::int32_t status);

// The next request of a chain.
struct redirect {
    request_target target;
    std::string verb;
    std::string headers;
    bool has_body = true;
};

// Where `response` sends the request; nothing when it sends it nowhere, or to somewhere that is not
// followed: no http or https, or from https to http.
std::optional<redirect> redirect_of(const request_target& from, const std::string& verb,
                                    const std::string& headers, const http::message_head& response);

}  // namespace pennywort::httpclient
