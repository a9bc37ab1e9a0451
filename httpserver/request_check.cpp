// httpserver/request_check.cpp - see the header for the contract.
#include "httpserver/request_check.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "httpserver/request_line.h"

namespace pennywort {
namespace {

constexpr std::int32_t k_fine = 0;
constexpr std::int32_t k_bad_request = 400;
constexpr std::int32_t k_not_implemented = 501;
constexpr std::string_view k_line_end = "\r\n";

bool is_token_byte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte >= 0x7f) return false;
    return std::string_view("\"(),/:;<=>?@[\\]{}").find(c) == std::string_view::npos;
}

bool is_token(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_token_byte);
}

bool is_visible(char c) { return static_cast<unsigned char>(c) > ' ' && c != 0x7f; }

// A line feed alone, or another control byte, would be the end of a header for one reader and not
// for the next.
bool is_value_byte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= ' ' && byte != 0x7f) || c == '\t';
}

bool is_version(std::string_view text) {
    return text.size() == 8 && text.substr(0, 7) == "HTTP/1." && text[7] >= '0' && text[7] <= '9';
}

// Cuts the front of `text` at the first `separator` and takes both off; all of it without one.
std::string_view cut(std::string_view& text, std::string_view separator) {
    const std::size_t at = std::min(text.find(separator), text.size());
    const std::string_view front = text.substr(0, at);
    text.remove_prefix(std::min(text.size(), at + separator.size()));
    return front;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool same_word(std::string_view text, std::string_view word) {
    return text.size() == word.size() && begins_with_word(text, word);
}

bool is_known_method(std::string_view method) {
    return same_word(method, "get") || same_word(method, "post") || same_word(method, "put");
}

std::int32_t refusal_of_line(std::string_view line) {
    const std::string_view method = cut(line, " ");
    const std::string_view target = cut(line, " ");
    if (!is_token(method)) return k_bad_request;
    if (!is_known_method(method)) return k_not_implemented;
    if (target.empty() || !std::all_of(target.begin(), target.end(), is_visible)) {
        return k_bad_request;
    }
    return is_version(line) ? k_fine : k_bad_request;
}

std::optional<std::int32_t> length_from(std::string_view value) {
    std::int32_t length = 0;
    const auto result = std::from_chars(value.data(), value.data() + value.size(), length);
    const bool is_whole = result.ec == std::errc() && result.ptr == value.data() + value.size();
    if (!is_whole || length < 0 || value.front() == '-') return std::nullopt;
    return length;
}

// What the headers say of the body's length.
struct body_length {
    std::int32_t bytes = 0;
    bool is_told = false;
};

std::int32_t refusal_of_header(std::string_view line, body_length& length) {
    const std::string_view name = line.substr(0, line.find(':'));
    if (name.size() == line.size() || !is_token(name)) return k_bad_request;
    const std::string_view value = line.substr(name.size() + 1);
    if (!std::all_of(value.begin(), value.end(), is_value_byte)) return k_bad_request;
    if (same_word(name, "transfer-encoding")) return k_not_implemented;
    if (!same_word(name, "content-length")) return k_fine;
    const auto told = length_from(trimmed(value));
    if (!told || length.is_told) return k_bad_request;
    length = {*told, true};
    return k_fine;
}

}  // namespace

std::int32_t refusal_of_method(std::string_view request) {
    const std::string_view front = request.substr(0, request.find_first_of(" \t\r\n"));
    return is_token(front) ? k_not_implemented : k_bad_request;
}

std::int32_t refusal_of_head(std::string_view head, std::int32_t content_length) {
    std::int32_t refusal = refusal_of_line(cut(head, k_line_end));
    body_length length;
    while (refusal == k_fine) {
        const std::string_view line = cut(head, k_line_end);
        if (line.empty()) break;
        refusal = refusal_of_header(line, length);
    }
    if (refusal != k_fine) return refusal;
    return length.bytes == content_length ? k_fine : k_bad_request;
}

}  // namespace pennywort
