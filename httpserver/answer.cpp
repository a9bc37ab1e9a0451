// httpserver/answer.cpp - see the header for the contract.
#include "httpserver/answer.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "core/http/bytes.h"
#include "core/http/status.h"

namespace pennywort::httpserver {
namespace {

constexpr std::string_view k_version = "HTTP/1.1 ";
constexpr std::string_view k_keep_alive = "\r\nConnection: Keep-Alive\r\n";
constexpr std::string_view k_close = "\r\nConnection: close\r\n";
constexpr std::string_view k_type = "Content-Type: ";
constexpr std::string_view k_length = "\r\nContent-Length: ";
constexpr std::string_view k_end = "\r\n\r\n";

// Of 32 and of 64 bits, with their signs.
constexpr std::size_t k_status_digits = std::numeric_limits<std::int32_t>::digits10 + 2;
constexpr std::size_t k_length_digits = std::numeric_limits<std::int64_t>::digits10 + 2;

static_assert(k_version.size() + k_status_digits + 1 + http::k_longest_reason +
                  k_keep_alive.size() + k_server_line.size() + k_type.size() + k_length.size() +
                  k_length_digits + k_end.size() <=
              k_head_room);

char* put(char* at, std::string_view text) { return std::copy(text.begin(), text.end(), at); }

char* put_status(char* at, std::int32_t status) {
    return std::to_chars(at, at + k_status_digits, status).ptr;
}

// CR LF in a type would begin a header of somebody else's choice.
char* put_type(char* at, std::string_view type) {
    return std::transform(type.begin(), type.end(), at,
                          [](char c) { return http::is_value_byte(c) ? c : ' '; });
}

}  // namespace

char* write_front(char* at, std::int32_t status, after_answer after) {
    at = put_status(put(at, k_version), status);
    *at++ = ' ';
    at = put(at, http::reason_of(status));
    at = after == after_answer::close ? put(at, k_close) : put(at, k_keep_alive);
    return put(at, k_server_line);
}

char* write_head(char* at, std::int32_t status, after_answer after, std::string_view content_type,
                 std::int64_t content_length) {
    at = write_front(at, status, after);
    if (http::is_bodiless(status)) return put(at, "\r\n");
    at = put(put_type(put(at, k_type), content_type), k_length);
    at = std::to_chars(at, at + k_length_digits, content_length).ptr;
    return put(at, k_end);
}

void append_front(std::string& out, std::int32_t status, after_answer after) {
    char front[k_head_room];
    out.append(front, write_front(front, status, after));
}

void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length) {
    const std::size_t before = out.size();
    out.resize(before + k_head_room + content_type.size());
    char* const at = out.data() + before;
    const char* const end = write_head(at, status, after, content_type, content_length);
    out.resize(before + static_cast<std::size_t>(end - at));
}

std::string status_page(std::int32_t status) {
    std::string body = "<HTML><TITLE>";
    body += http::reason_of(status);
    return body + "</TITLE></HTML>\r\n";
}

std::string_view not_found_page() {
    return "<HTML><TITLE>Not Found</TITLE>\r\n\t<BODY><P>The server could not fulfill your request "
           "(Resource not found)</P>\r\n</BODY></HTML>\r\n";
}

}  // namespace pennywort::httpserver
