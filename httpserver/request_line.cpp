// httpserver/request_line.cpp - see the header for the contract.
#include "httpserver/request_line.h"

#include <algorithm>

namespace pennywort {
namespace {

constexpr std::size_t k_least_bytes = 4;

bool is_blank(char c) { return c == ' ' || c == '\t'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

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

bool begins_with_word(std::string_view text, std::string_view word) {
    if (text.size() < word.size()) return false;
    return std::equal(word.begin(), word.end(), text.begin(),
                      [](char wanted, char found) { return wanted == lower(found); });
}

std::uint32_t method_of(std::string_view request) {
    if (request.size() < k_least_bytes) return 0;
    if (begins_with_word(request, "get")) return 0x47455420;
    if (begins_with_word(request, "post")) return 0x504F5354;
    if (begins_with_word(request, "put")) return 0x50555420;
    return 0;
}

request_line parse_request_line(std::string_view request) {
    request_line line;
    take_until(request, is_blank);
    take_until(request, [](char c) { return !is_blank(c); });
    line.path = take_until(request, [](char c) { return is_blank(c) || c == '?'; });
    line.extension = extension_of(line.path);
    if (!request.empty() && request.front() == '?') {
        request.remove_prefix(1);
        line.query = take_until(request, is_blank);
    }
    return line;
}

}  // namespace pennywort
