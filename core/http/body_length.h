// body_length.h - how far the body of a message reaches, by RFC 9112 section 6.3. No clock, no I/O.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/http/head_parser.h"

namespace pennywort::http {

enum class body_kind {
    none,
    counted,     // `length` bytes
    chunked,     // chunked_body knows its end
    until_close  // of answers only
};

enum class body_fault {
    none,
    bad_length,         // no number, or several lengths
    length_and_coding,  // both are told: two readers may choose differently
    unknown_coding,     // one beside "chunked"
    bad_coding          // "chunked" is not the last, comes twice, or the message is of HTTP/1.0
};

struct body_plan {
    body_kind kind = body_kind::none;
    std::uint64_t length = 0;
    body_fault fault = body_fault::none;
};

body_plan body_of_request(const message_head& head);
// `method` is the one of the request: an answer to HEAD has no body whatever it tells.
body_plan body_of_answer(const message_head& head, std::string_view method);

// Whether the connection goes on after the message: HTTP/1.1 does unless it says "close", HTTP/1.0
// does not unless it says "keep-alive".
bool is_persistent(const message_head& head);

}  // namespace pennywort::http
