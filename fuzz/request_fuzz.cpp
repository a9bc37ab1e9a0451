// request_fuzz.cpp - the server's reading of a request: the same answer however the bytes are
// split, and beside a plain reading of the whole.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "httpserver/request_line.h"
#include "httpserver/request_progress.h"
#include "httpserver/strict_request.h"
#include "httpserver/url_path.h"

namespace {

using pennywort::httpserver::request_progress;
using pennywort::httpserver::strict_request;

// Both readings look at the whole text at each step, and differ only in what they remember.
bool looked_at_once(std::string_view text) { return request_progress().look(text); }

// Numbers with more digits than scanf can hold are not compared.
constexpr std::int64_t k_too_long = std::numeric_limits<std::int64_t>::min();
constexpr std::size_t k_most_digits = 18;

std::int64_t number_at(const std::string& text) {
    constexpr const char* k_digits = "0123456789";
    const std::size_t first = std::min(text.find_first_of(k_digits), text.size());
    const std::size_t end = std::min(text.find_first_not_of(k_digits, first), text.size());
    if (end - first > k_most_digits) return k_too_long;
    long long value = 0;
    if (std::sscanf(text.c_str(), "%lld", &value) != 1) return 0;
    using limits = std::numeric_limits<std::int32_t>;
    return std::clamp<long long>(value, limits::min(), limits::max());
}

std::int64_t length_of(std::string_view text) {
    constexpr std::string_view k_name = "content-length:";
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    });
    const std::size_t at = lower.find(k_name);
    return at == std::string::npos ? 0 : number_at(lower.substr(at + k_name.size()));
}

bool plainly_complete(std::string_view text) {
    if (pennywort::httpserver::method_of(text) == 0) return false;
    const std::size_t end = text.find("\r\n\r\n");
    const std::int64_t length = length_of(text);
    if (end == std::string_view::npos || length > static_cast<std::int64_t>(text.size())) {
        return false;
    }
    return static_cast<std::int64_t>(text.size() - end) - 4 >= length;
}

void read_parts(std::string_view text) {
    const auto line = pennywort::httpserver::parse_request_line(text);
    for (const std::string_view part : {line.path, line.extension, line.query}) {
        require(part.data() == nullptr || (part.data() >= text.data() &&
                                           part.data() + part.size() <= text.data() + text.size()),
                "the parts lie in the request");
    }
    for (const std::string& name :
         pennywort::httpserver::path_names(line.path).value_or(std::vector<std::string>())) {
        require(name != ".." && name.find_first_of(std::string("/\\\0", 3)) == std::string::npos,
                "no name leads elsewhere");
    }
}

// A strict server reads any bytes, NUL too.
void read_strictly(std::string_view bytes, std::size_t split) {
    constexpr std::int64_t k_most = 1500;
    strict_request whole(k_most);
    strict_request parts(k_most);
    const auto feed = [](strict_request& request, std::string_view from) {
        return request.status() == strict_request::state::need_more ? request.feed(from) : 0;
    };
    const std::size_t used = feed(whole, bytes);
    std::size_t used_in_parts = feed(parts, bytes.substr(0, split));
    used_in_parts += feed(parts, bytes.substr(used_in_parts));
    require(whole.status() == parts.status() && whole.refusal() == parts.refusal(),
            "splitting the bytes changes nothing for a strict server");
    require(used == used_in_parts && whole.text() == parts.text(), "nor what is taken of them");
    require(static_cast<std::int64_t>(whole.text().size()) <= k_most ||
                whole.status() == strict_request::state::refused,
            "a request is no longer than it may be");
    if (whole.status() != strict_request::state::complete) return;
    require(whole.resource().substr(0, 1) == "/", "a resource begins with a slash");
}

void look(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    // The server drops what follows a NUL.
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    const std::size_t step = size == 0 ? 1 : 1 + data[size - 1] % 7;
    request_progress progress;
    for (std::size_t there = step; there < text.size() + step; there += step) {
        const std::string so_far(text.substr(0, there));
        const bool complete = progress.look(so_far);
        require(complete == looked_at_once(so_far), "splitting the bytes changes nothing");
        if (length_of(so_far) != k_too_long) {
            require(complete == plainly_complete(so_far), "it is complete when it plainly is");
        }
    }
    require(progress.bytes_examined() <= 40 * text.size() + 64, "the work grows with the bytes");
    read_parts(text);
    read_strictly(bytes, step);
}

const fuzz_target k_target("request", look);

}  // namespace
