// httpserver/request_line.cpp - see the header for the contract.
#include "httpserver/request_line.h"

#include <algorithm>

#include "core/text/ascii.h"

namespace pennywort::httpserver {
namespace {

constexpr std::size_t k_least_bytes = 4;

// Takes the bytes up to the first that `ends` off the front of `text`.
template <typename predicate>
std::string_view take_until(std::string_view& text, predicate ends) {
    const auto length = std::find_if(text.begin(), text.end(), ends) - text.begin();
    const std::string_view taken = text.substr(0, static_cast<std::size_t>(length));
    text.remove_prefix(taken.size());
    return taken;
}

std::string_view extension_of(std::string_view path) {
    const std::size_t dot = path.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
}

}  // namespace

std::uint32_t method_of(std::string_view request) {
    if (request.size() < k_least_bytes) return 0;
    if (text::begins_ignoring_case(request, "get")) return 0x47455420;
    if (text::begins_ignoring_case(request, "post")) return 0x504F5354;
    if (text::begins_ignoring_case(request, "put")) return 0x50555420;
    return 0;
}

request_line parse_request_line(std::string_view request) {
    request_line line;
    take_until(request, text::is_blank);
    take_until(request, [](char c) { return !text::is_blank(c); });
    line.path = take_until(request, [](char c) { return text::is_blank(c) || c == '?'; });
    line.extension = extension_of(line.path);
    if (!request.empty() && request.front() == '?') {
        request.remove_prefix(1);
        line.query = take_until(request, text::is_blank);
    }
    return line;
}

}  // namespace pennywort::httpserver
