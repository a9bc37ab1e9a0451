// httpserver/request_check.cpp - see the header for the contract.
#include "httpserver/request_check.h"

#include <algorithm>

#include "core/text/ascii.h"
#include "core/text/numbers.h"

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

bool is_visible(char c) { return c != ' ' && !text::is_control(c); }

// A line feed alone, or another control byte, would be the end of a header for one reader and not
// for the next.
bool is_value_byte(char c) { return !text::is_control(c) || c == '\t'; }

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

bool is_known_method(std::string_view method) {
    return text::equal_ignoring_case(method, "get") || text::equal_ignoring_case(method, "post") ||
           text::equal_ignoring_case(method, "put");
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
    if (text::equal_ignoring_case(name, "transfer-encoding")) return k_not_implemented;
    if (!text::equal_ignoring_case(name, "content-length")) return k_fine;
    const auto told = text::digits<std::int32_t>(text::trimmed(value, text::k_blank));
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
