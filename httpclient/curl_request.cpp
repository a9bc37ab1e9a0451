// curl_request.cpp - see the header for the contract.
#include "httpclient/curl_request.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>

#include "core/http/url.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "httpclient/curl_lines.h"
#include "httpclient/request_object.h"

namespace pennywort::httpclient {

namespace {

using curl_url = std::unique_ptr<CURLU, curl_url_end>;

std::string part_of(const curl_url& url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (::curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) return {};
    const std::unique_ptr<char, decltype(&::curl_free)> owner(text, ::curl_free);
    return text;
}

// `location` may be relative to where the response came from.
std::optional<request_target> resolved(const request_target& from, std::string_view location) {
    const curl_url url(::curl_url());
    if (url == nullptr) return std::nullopt;
    const std::string where(location);
    if (::curl_url_set(url.get(), CURLUPART_URL, from.url().c_str(), 0) != CURLUE_OK ||
        ::curl_url_set(url.get(), CURLUPART_URL, where.c_str(), CURLU_URLENCODE) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::string scheme = part_of(url, CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") return std::nullopt;
    request_target to;
    to.is_secure = scheme == "https";
    to.host = part_of(url, CURLUPART_HOST);
    if (to.host.starts_with('[') && to.host.ends_with(']')) {
        to.host = to.host.substr(1, to.host.size() - 2);
    }
    const std::string port = part_of(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    to.port = text::whole_between<std::int32_t>(port, 1, 0xFFFF).value_or(0);
    to.object = escaped_object(part_of(url, CURLUPART_PATH));
    const std::string query = part_of(url, CURLUPART_QUERY);
    if (!query.empty()) to.object += "?" + escaped_object(query);
    if (to.port == 0 || !is_host(to.host)) return std::nullopt;
    return to;
}

// As browsers and WinHTTP do: a POST becomes a GET but where the status forbids it.
bool becomes_get(std::int32_t status, const std::string& verb) {
    return status == 303 || ((status == 301 || status == 302) && verb == "POST");
}

std::string_view name_of(std::string_view line) { return line.substr(0, line.find(':')); }

// Calls `each` with every line of a block.
template <typename call>
void for_each_line(std::string_view block, call each) {
    while (!block.empty()) {
        const std::size_t end = block.find("\r\n");
        each(block.substr(0, end));
        block.remove_prefix(end == std::string_view::npos ? block.size() : end + 2);
    }
}

// What proves who asks is for the server that it was meant for, and so is a name that the caller
// gave that server: libcurl would keep the cookies of both under it.
bool is_for_one_server(std::string_view name) {
    return text::equal_ignoring_case(name, "Authorization") ||
           text::equal_ignoring_case(name, "Host") || text::equal_ignoring_case(name, "Cookie") ||
           text::equal_ignoring_case(name, "Proxy-Authorization");
}

std::string headers_for(const std::string& headers, bool is_elsewhere, bool has_body) {
    std::string kept;
    for_each_line(headers, [&](std::string_view line) {
        if (is_elsewhere && is_for_one_server(text::trimmed(name_of(line)))) return;
        if (!has_body && text::begins_ignoring_case(name_of(line), "Content-")) return;
        kept.append(line).append("\r\n");
    });
    return kept;
}

}  // namespace

std::string request_target::origin() const {
    const bool is_literal = host.find(':') != std::string::npos;
    std::string text = is_secure ? "https://" : "http://";
    text += is_literal ? "[" + host + "]" : host;
    const bool is_usual = port == http::default_port(is_secure ? "https" : "http");
    return is_usual ? text : text + ":" + std::to_string(port);
}

std::string curl_header_line(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return {};
    if (line.find_first_of("\r\n") != std::string_view::npos) return {};
    // A line that began with a blank would go on with the header before it.
    const std::string name(text::trimmed(line.substr(0, colon)));
    if (!text::trimmed(line.substr(colon + 1)).empty())
        return name + std::string(line.substr(colon));
    return name + ";";
}

bool is_redirect(std::int32_t status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool has_header(std::string_view block, std::string_view name) {
    bool is_there = false;
    for_each_line(block, [&](std::string_view line) {
        is_there = is_there || text::equal_ignoring_case(text::trimmed(name_of(line)), name);
    });
    return is_there;
}

std::optional<redirect> redirect_of(const request_target& from, const std::string& verb,
                                    const std::string& headers,
                                    const http::message_head& response) {
    const auto location = response.headers.find("Location");
    if (!is_redirect(response.status) || !location) return std::nullopt;
    const auto target = resolved(from, *location);
    if (!target || (from.is_secure && !target->is_secure)) return std::nullopt;
    redirect next;
    next.target = *target;
    next.has_body = !becomes_get(response.status, verb);
    next.verb = next.has_body ? verb : "GET";
    next.headers = headers_for(headers, target->origin() != from.origin(), next.has_body);
    return next;
}

}  // namespace pennywort::httpclient
