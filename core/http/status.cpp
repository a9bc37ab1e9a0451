// core/http/status.cpp - see the header for the contract.
#include "core/http/status.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace pennywort::http {
namespace {

struct named_status {
    std::int32_t status;
    std::string_view reason;
};

constexpr named_status k_statuses[] = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {426, "Upgrade Required"},
    {428, "Precondition Required"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
};

constexpr std::int32_t k_first = 100;
constexpr std::int32_t k_last = 505;
static_assert(k_statuses[0].status == k_first);
static_assert(k_statuses[std::size(k_statuses) - 1].status == k_last);

constexpr std::size_t longest_reason() {
    std::size_t longest = 0;
    for (const named_status& one : k_statuses) longest = std::max(longest, one.reason.size());
    return longest;
}
static_assert(longest_reason() == k_longest_reason);

// For each status its place in the table, counted from 1; 0 for one that has no name. Each answer
// asks for its own.
constexpr auto k_places = [] {
    std::array<std::uint8_t, k_last - k_first + 1> places{};
    std::uint8_t place = 0;
    for (const named_status& one : k_statuses) {
        places[static_cast<std::size_t>(one.status - k_first)] = ++place;
    }
    return places;
}();

}  // namespace

std::string_view reason_of(std::int32_t status) {
    if (status < k_first || status > k_last) return "Unknown";
    const std::uint8_t place = k_places[static_cast<std::size_t>(status - k_first)];
    return place == 0 ? "Unknown" : k_statuses[place - 1].reason;
}

}  // namespace pennywort::http
