// websocket/link/link_address.cpp - see the header for the contract.
#include "websocket/link/link_address.h"

#include <algorithm>
#include <stdexcept>

#include "core/http/url.h"
#include "core/http/user_proxy.h"
#include "websocket/link/proxy_choice.h"

namespace pennywort::websocket {

namespace {

http::url checked_url(const std::string& url) {
    const auto parsed = http::parse_url(url);
    if (!parsed.is_ok()) {
        throw std::invalid_argument("The URL is not understood: " +
                                    std::string(http::words_of(parsed.fault)));
    }
    if (!parsed.value.scheme.starts_with("ws")) {
        throw std::invalid_argument("The scheme of the URL is neither ws nor wss.");
    }
    if (!parsed.value.fragment.empty()) {
        throw std::invalid_argument("The URL has a fragment.");
    }
    return parsed.value;
}

bool is_printable(unsigned char byte) { return byte > ' ' && byte != 0x7F; }

// What may not stand in a request line: it would end the line, or begin another one.
void refuse_controls(const std::string& text) {
    const bool is_fine = std::all_of(
        text.begin(), text.end(), [](unsigned char byte) { return byte >= ' ' && byte != 0x7F; });
    if (!is_fine) throw std::invalid_argument("The URL has control characters.");
}

// As WinHTTP has it: the fragment stays here, and what a request line cannot hold is encoded.
std::string request_target(const std::string& path) {
    constexpr char k_digits[] = "0123456789ABCDEF";
    std::string target;
    for (const unsigned char byte : path.substr(0, path.find('#'))) {
        if (is_printable(byte) && byte < 0x80) {
            target.push_back(static_cast<char>(byte));
        } else {
            target.append({'%', k_digits[byte >> 4], k_digits[byte & 0xF]});
        }
    }
    return target.empty() ? "/" : target;
}

void take_settings(link_request& request, const transport_settings& settings) {
    request.user_agent = settings.user_agent;
    request.headers = settings.headers;
    request.protocols = settings.protocols;
    request.offers_deflate = settings.offers_deflate;
    request.max_message_bytes = settings.max_message_bytes;
    request.opening_time = settings.opening_time;
    request.closing_time = settings.closing_time;
    if (const auto proxy = http::read_user_proxy()) {
        request.proxy = choose_proxy(*proxy, request.host, request.port, request.is_secure);
    }
}

}  // namespace

link_request request_for_url(const std::string& url, const transport_settings& settings) {
    const http::url where = checked_url(url);
    link_request request;
    request.host = where.host;
    request.port = where.port;
    request.authority = where.authority();
    request.target = where.target();
    request.is_secure = where.is_secure();
    take_settings(request, settings);
    return request;
}

link_request request_for_host(const std::string& host, std::uint16_t port, bool is_secure,
                              const std::string& target, const transport_settings& settings) {
    refuse_controls(host);
    refuse_controls(target);
    if (host.find(' ') != host.npos) throw std::invalid_argument("The host has a blank.");
    http::url where;
    where.scheme = is_secure ? "wss" : "ws";
    where.host = host;
    where.port = port;
    where.is_ipv6 = http::is_ipv6_address(host);
    link_request request;
    request.host = host;
    request.port = port;
    request.authority = where.authority();
    request.target = request_target(target);
    request.is_secure = is_secure;
    take_settings(request, settings);
    return request;
}

}  // namespace pennywort::websocket
