// host/live/live_guard.cpp - see the header for the contract.
#include "host/live/live_guard.h"

#include <algorithm>
#include <random>
#include <utility>

#include "core/text/ascii.h"

namespace pennywort::host {

namespace {

// Joins the values of a header that occurs twice, so that they match nothing.
std::string header(const cHttpRequest& request, std::string_view name) {
    std::string value;
    for (std::int32_t i = 0; i < request.HeaderCount(); ++i) {
        if (!text::equal_ignoring_case(request.HeaderName(i), name)) continue;
        value += (value.empty() ? "" : ",") + std::string(request.HeaderValue(i));
    }
    return value;
}

// The value of the first cookie of that name; empty if there is none.
std::string_view cookie_of(std::string_view cookies, std::string_view name) {
    while (!cookies.empty()) {
        const auto part = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(cookies.size(), part.size() + 1));
        const auto cookie = text::trimmed(part, text::k_blank);
        const auto sign = cookie.find('=');
        if (sign != cookie.npos && cookie.substr(0, sign) == name) return cookie.substr(sign + 1);
    }
    return {};
}

// What a caller bears; empty if it shows something else. The name of a scheme has no case.
std::string_view bearer_of(std::string_view authorization) {
    constexpr std::string_view k_scheme = "bearer ";
    if (!text::equal_ignoring_case(authorization.substr(0, k_scheme.size()), k_scheme)) return {};
    return text::trimmed(authorization.substr(k_scheme.size()), text::k_blank);
}

// Takes the same time for any token. Otherwise the time would tell how much of a guess is right.
bool same(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
    }
    return difference == 0;
}

}  // namespace

live_caller live_caller::of(const cHttpRequest& request) {
    live_caller caller;
    caller.host = text::lower(header(request, "host"));
    caller.origin = text::lower(header(request, "origin"));
    caller.fetch_site = text::lower(header(request, "sec-fetch-site"));
    caller.authorization = header(request, "authorization");
    caller.cookies = header(request, "cookie");
    std::string_view query = request.Query().View();
    while (!query.empty()) {
        const auto part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), part.size() + 1));
        if (part.substr(0, 6) == "token=") caller.query_token = part.substr(6);
    }
    return caller;
}

live_guard::live_guard(std::int32_t port, std::string token)
    : m_port(":" + std::to_string(port)),
      m_cookie("pennywort-" + std::to_string(port)),
      m_token(std::move(token)) {}

// A page of a foreign name that leads to this machine could read what is returned here.
bool live_guard::is_own_name(std::string_view host) const {
    const bool has_port =
        host.size() > m_port.size() && host.substr(host.size() - m_port.size()) == m_port;
    if (!has_port && m_port != ":80") return false;
    const auto name = has_port ? host.substr(0, host.size() - m_port.size()) : host;
    if (name == "localhost" || name == "[::1]") return true;
    // Digits and dots alone are an address and never a name.
    return is_loopback(name) && name.find_first_not_of("0123456789.") == name.npos;
}

bool live_guard::has_token(const live_caller& caller) const {
    return same(caller.query_token, m_token) || same(bearer_of(caller.authorization), m_token) ||
           same(cookie_of(caller.cookies, m_cookie), m_token);
}

// Not for scripts of the page, and not sent along by pages of other sites.
std::string live_guard::cookie_for(const live_caller& caller) const {
    if (m_token.empty() || !same(caller.query_token, m_token)) return {};
    return m_cookie + "=" + m_token + "; Path=/; HttpOnly; SameSite=Strict";
}

int live_guard::refusal(const live_caller& caller) const {
    // With a token the name is no matter: a foreign page does not have it.
    if (m_token.empty() && !is_own_name(caller.host)) return 403;
    if (!caller.origin.empty() && caller.origin != "http://" + caller.host) return 403;
    const auto& site = caller.fetch_site;
    if (!site.empty() && site != "same-origin" && site != "none") return 403;
    return m_token.empty() || has_token(caller) ? 0 : 401;
}

std::string random_token() {
    constexpr std::string_view k_digits = "0123456789abcdef";
    std::random_device source;
    std::string token;
    for (int i = 0; i < 4; ++i) {
        auto word = source();
        for (int digit = 0; digit < 8; ++digit, word >>= 4) token += k_digits[word & 15];
    }
    return token;
}

bool is_loopback(std::string_view address) {
    return address.substr(0, 4) == "127." || address == "::1";
}

}  // namespace pennywort::host
