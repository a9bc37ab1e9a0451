// httpserver/answer.cpp - see the header for the contract.
#include "httpserver/answer.h"

#include <algorithm>
#include <charconv>

#include "core/http/bytes.h"
#include "core/http/status.h"
#include "httpserver.h"

namespace pennywort::httpserver {
namespace {

void append_number(std::string& out, std::int64_t number) {
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    out.append(digits, end);
}

}  // namespace

// CR LF in a value would begin a header of somebody else's choice.
std::string one_line(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return !http::is_value_byte(c); }, ' ');
    return line;
}

void append_front(std::string& out, std::int32_t status, after_answer after) {
    out += "HTTP/1.1 ";
    append_number(out, status);
    out += ' ';
    out += http::reason_of(status);
    out += after == after_answer::close ? "\r\nConnection: close\r\n"
                                        : "\r\nConnection: Keep-Alive\r\n";
    out += cHttpHandler::ServerString();
}

void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length) {
    append_front(out, status, after);
    if (!http::is_bodiless(status)) {
        out += "Content-Type: ";
        const std::size_t begin = out.size();
        out += content_type;
        std::replace_if(
            out.begin() + static_cast<std::ptrdiff_t>(begin), out.end(),
            [](char c) { return !http::is_value_byte(c); }, ' ');
        out += "\r\nContent-Length: ";
        append_number(out, content_length);
        out += "\r\n";
    }
    out += "\r\n";
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
