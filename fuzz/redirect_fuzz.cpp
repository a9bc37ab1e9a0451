// redirect_fuzz.cpp - where a response sends a request, whatever its Location holds: to a host that
// is one, with nothing in the request that a caller has not put there. And header lines of any
// bytes as libcurl takes them.
#include <algorithm>
#include <cstdint>
#include <string>

#include "core/http/head_parser.h"
#include "fuzz/fuzz.h"
#include "httpclient/curl_request.h"
#include "httpclient/request_object.h"

using namespace pennywort;
using namespace pennywort::httpclient;

namespace {

const request_target k_from{"host.example", "/a/b?c=d", 8443, true};
constexpr char k_headers[] = "Authorization: secret\r\nX: y\r\ncontent-type: text/plain\r\n";

void check_redirect(const std::string& location, std::int32_t status) {
    http::message_head response;
    response.status = status;
    response.headers.add("Location", location);
    const auto next = redirect_of(k_from, "POST", k_headers, response);
    if (!next) return;
    const request_target& to = next->target;
    require(to.is_secure, "it stays within TLS");
    require(to.port >= 1 && to.port <= 0xFFFF && is_host(to.host), "it leads to a host");
    require(to.object.starts_with('/'), "it asks for something");
    require(std::all_of(to.object.begin(), to.object.end(),
                        [](char c) { return c > ' ' && c < 0x7F && c != '#'; }),
            "what it asks for can stand in a request");
    const bool is_elsewhere = to.origin() != k_from.origin();
    require(has_header(next->headers, "authorization") != is_elsewhere, "secrets stay");
    require(next->has_body == (status >= 307), "the status says whether the body goes along");
    require(has_header(next->headers, "Content-Type") == next->has_body, "its headers with it");
}

void check_line(const std::string& line) {
    const std::string taken = curl_header_line(line);
    require(taken.find_first_of("\r\n") == taken.npos, "a line is one line");
    require(taken.empty() || taken.front() != ' ', "it does not go on with the one before");
    require(taken.empty() || taken.find_first_of(":;") != taken.npos, "it has a name");
}

// A byte that chooses the status, then the location.
void look(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    constexpr std::int32_t k_statuses[] = {301, 302, 303, 307, 308};
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    check_redirect(rest, k_statuses[data[0] % 5]);
    check_line(rest);
}

const fuzz_target k_target("redirect", look);

}  // namespace
