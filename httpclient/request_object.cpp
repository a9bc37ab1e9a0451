// httpclient/request_object.cpp - see the header for the contract.
#include "httpclient/request_object.h"

#include <algorithm>

#include "core/http/url.h"
#include "core/text/ascii.h"

namespace pennywort::httpclient {

namespace {

// Of a URL's path and query; everything printable but these stays as the caller wrote it.
constexpr std::string_view k_escaped = "\"<>\\^`{|}#";

}  // namespace

bool is_host(std::string_view host) {
    if (host.find(':') != std::string_view::npos) return http::is_ipv6_address(host);
    return !host.empty() && host.find_first_of("/?#@[]\\%<>\"^`{|}") == std::string_view::npos &&
           std::none_of(host.begin(), host.end(),
                        [](char c) { return c == ' ' || text::is_control(c); });
}

std::string escaped_object(std::string_view object) {
    constexpr char k_digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(object.size());
    for (const char c : object) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7F && k_escaped.find(c) == std::string_view::npos) {
            out += c;
        } else {
            out += {'%', k_digits[byte >> 4], k_digits[byte & 15]};
        }
    }
    return out;
}

}  // namespace pennywort::httpclient
