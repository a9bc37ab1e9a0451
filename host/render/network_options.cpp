// host/render/network_options.cpp - see the header for the contract.
#include "host/render/network_options.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "core/http/bytes.h"
#include "core/http/url.h"
#include "core/text/ascii.h"

namespace pennywort::host {

namespace {

// A request has one of these at most, and its value is no list: two with a comma between would be
// read as one that is wrong.
constexpr std::string_view k_single_headers[] = {
    "authorization", "content-type",        "date",         "expect", "from",  "if-modified-since",
    "if-range",      "if-unmodified-since", "max-forwards", "origin", "range", "referer",
    "user-agent"};

// A request that has one of these is none to the browser.
constexpr std::string_view k_browsers_headers[] = {
    "content-length", "cookie2",          "host", "keep-alive", "set-cookie", "te", "trailer",
    "upgrade",        "transfer-encoding"};

constexpr std::string_view k_proxy_schemes[] = {"http", "https", "socks4", "socks5"};

bool is_one_of(std::string_view text, const std::string_view* begin, const std::string_view* end) {
    return std::any_of(
        begin, end, [text](std::string_view one) { return text::equal_ignoring_case(text, one); });
}

bool is_browsers_own(std::string_view name, std::string_view value) {
    return is_one_of(name, std::begin(k_browsers_headers), std::end(k_browsers_headers)) ||
           text::begins_ignoring_case(name, "proxy-") ||
           (text::equal_ignoring_case(name, "connection") &&
            text::equal_ignoring_case(value, "upgrade"));
}

std::pair<std::string, std::string> parted(const std::string& text, char mark) {
    const auto at = text.find(mark);
    if (at == text.npos) return {text, {}};
    return {text.substr(0, at), text.substr(at + 1)};
}

template <class texts>
auto named(texts& all, const std::string& name) {
    return std::find_if(all.begin(), all.end(),
                        [&name](const auto& one) { return one.first == name; });
}

std::string add_header(const std::string& name, std::string value, named_texts& headers) {
    const auto same = std::find_if(headers.begin(), headers.end(), [&name](const auto& one) {
        return text::equal_ignoring_case(one.first, name);
    });
    if (same == headers.end()) {
        headers.emplace_back(name, std::move(value));
        return {};
    }
    if (text::equal_ignoring_case(name, "cookie")) {
        return "--header " + name + " is given twice: give each cookie as --cookie NAME=VALUE";
    }
    if (is_one_of(name, std::begin(k_single_headers), std::end(k_single_headers))) {
        return "--header " + name + " is given twice, and a request has only one";
    }
    const char* const between = same->second.empty() || value.empty() ? "" : ", ";
    same->second += between + value;
    return {};
}

bool has_port(std::string_view authority) {
    const auto bracket = authority.find(']');
    return authority.find(':', bracket == authority.npos ? 0 : bracket) != authority.npos;
}

std::string complaint_of_proxy(const std::string& given) {
    return "--proxy " + given +
           " is not http://HOST:PORT, https://, socks4:// or socks5://HOST:PORT, HOST:PORT, or "
           "none";
}

}  // namespace

std::string take_headers(const std::vector<std::string>& given, named_texts& headers) {
    for (const auto& text : given) {
        const auto [name, rest] = parted(text, ':');
        const std::string value(http::trimmed_value(rest));
        const bool is_one = http::is_token(name) && text.find(':') != text.npos;
        if (!is_one || !http::is_value(value)) {
            return "--header " + text + " is no header: NAME: VALUE";
        }
        if (is_browsers_own(name, value)) {
            return "--header " + text + ": the browser writes this one itself";
        }
        std::string wrong = add_header(name, value, headers);
        if (!wrong.empty()) return wrong;
    }
    return {};
}

std::string take_cookies(const std::vector<std::string>& given, named_texts& cookies) {
    for (const auto& text : given) {
        auto [name, value] = parted(text, '=');
        const bool has_control = std::any_of(value.begin(), value.end(), text::is_control);
        const bool is_one = http::is_token(name) && text.find('=') != text.npos && !has_control &&
                            value.find(';') == value.npos;
        if (!is_one) return "--cookie " + text + " is no cookie: NAME=VALUE";
        if (named(cookies, name) != cookies.end()) {
            return "--cookie " + name + " is given twice, and a site has only one of that name";
        }
        cookies.emplace_back(std::move(name), std::move(value));
    }
    return {};
}

std::string take_switches(const std::vector<std::string>& given, named_texts& switches) {
    for (const auto& text : given) {
        auto one = parted(text, '=');
        if (one.first.empty() || one.first.front() == '-') {
            return "--switch " + text + " is no NAME or NAME=VALUE without dashes";
        }
        if (named(switches, one.first) != switches.end()) {
            return "--switch " + one.first + " is given twice, and only one of them would count";
        }
        switches.push_back(std::move(one));
    }
    return {};
}

std::string take_proxy(const std::string& given, std::string& proxy) {
    proxy = given;
    if (given.empty() || given == "none") return {};
    const auto scheme_end = given.find("://");
    const bool has_scheme = scheme_end != given.npos;
    const std::string scheme = has_scheme ? text::lower(given.substr(0, scheme_end)) : "http";
    std::string server = has_scheme ? given.substr(scheme_end + 3) : given;
    if (!server.empty() && server.back() == '/') server.pop_back();
    const auto parsed = http::parse_url("http://" + server, http::user_info::allowed);
    if (parsed.is_ok() && parsed.value.has_user_info) {
        return "--proxy " + given + ": a name and a password are not supported";
    }
    const bool is_known = is_one_of(scheme, std::begin(k_proxy_schemes), std::end(k_proxy_schemes));
    const bool is_server = parsed.is_ok() && http::is_authority(server) && server.back() != ':';
    if (!is_known || !is_server || !(has_scheme || has_port(server))) {
        return complaint_of_proxy(given);
    }
    proxy = scheme + "://" + server;
    return {};
}

}  // namespace pennywort::host
