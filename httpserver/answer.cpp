// httpserver/answer.cpp - see the header for the contract.
#include "httpserver/answer.h"

#include <charconv>

#include "httpserver.h"

namespace pennywort {
namespace {

void append_number(std::string& out, std::int64_t number) {
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    out.append(digits, end);
}

}  // namespace

std::string_view reason_of(std::int32_t status) {
    switch (status) {
        case 200:
            return "OK";
        case 204:
            return "No Content";
        case 304:
            return "Not Modified";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 413:
            return "Content Too Large";
        case 500:
            return "Internal Server Error";
        case 501:
            return "Not Implemented";
        case 503:
            return "Service Unavailable";
        default:
            return "Unknown";
    }
}

void append_head(std::string& out, std::int32_t status, after_answer after,
                 std::string_view content_type, std::int64_t content_length) {
    out += "HTTP/1.1 ";
    append_number(out, status);
    out += ' ';
    out += reason_of(status);
    out += after == after_answer::close ? "\r\nConnection: close\r\n"
                                        : "\r\nConnection: Keep-Alive\r\n";
    out += cHttpHandler::ServerString();
    out += "Content-Type: ";
    out += content_type;
    out += "\r\nContent-Length: ";
    append_number(out, content_length);
    out += "\r\n\r\n";
}

std::string refusal_page(std::int32_t status) {
    std::string body = "<HTML><TITLE>";
    body += reason_of(status);
    body += "</TITLE></HTML>\r\n";
    std::string page;
    append_head(page, status, after_answer::close, "text/html",
                static_cast<std::int64_t>(body.size()));
    return page + body;
}

std::string_view not_found_page() {
    return "<HTML><TITLE>Not Found</TITLE>\r\n\t<BODY><P>The server could not fulfill your request "
           "(Resource not found)</P>\r\n</BODY></HTML>\r\n";
}

}  // namespace pennywort
