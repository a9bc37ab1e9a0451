// request_view.h - what stands behind cHttpRequest and cHttpAnswer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/http/head_parser.h"
#include "httpserver.h"

namespace pennywort::httpserver {

// The parts of a request that handlers are given, kept from one request to the next, so that they
// cost no allocation.
struct request_names {
    zString path;
    zString extension;
    zString query;
};

class request_view {
public:
    zSocket* socket = nullptr;
    std::int32_t method = 0;
    const request_names* names = nullptr;
    const char* text = nullptr;  // head and body, with a NUL behind
    std::size_t body_offset = 0;
    std::size_t size = 0;                             // of the text
    const http::message_head* strict_head = nullptr;  // null unless the server is strict

    // Of a server that is not strict it is read when somebody asks, with every leniency there is.
    const http::message_head& head();
    std::string_view body() const { return {text + body_offset, size - body_offset}; }

private:
    std::unique_ptr<http::head_parser> m_parser;
};

// What a handler wants to be sent.
struct answer_parts {
    std::int32_t status = 200;
    http::header_list headers;
    std::string text;
    std::shared_ptr<const std::string> shared;
    std::unique_ptr<cHttpBody> body;
    std::unique_ptr<cHttpBody> whole;
    bool is_set = false;  // the server is to send it
    bool is_last = false;
    bool is_trusted = false;

    // What the body's bytes are, wherever they lie.
    std::int64_t length();
    // For the next request. A handler that writes its answer itself leaves all as it was.
    void reset() {
        if (is_set || is_last || is_trusted) *this = answer_parts();
    }
};

}  // namespace pennywort::httpserver
