// http_connection.h - what the server knows of one connection.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "httpserver.h"
#include "httpserver/request_progress.h"

namespace pennywort {

enum class http_stage {
    request,  // waits for a request or the rest of one
    pieces,   // sends the rest of an answer; the next request waits in the system's buffer
    parting   // has been refused; what still comes is dropped until the peer ends
};

// The watch set holds the part that zSocket::Select wants.
struct http_connection : _zSocket_select {
    explicit http_connection(std::unique_ptr<zSocket> connected, std::int64_t now)
        : owned_socket(std::move(connected)), since(now) {
        socket = owned_socket.get();
        requested = zSocket::k_readable;
    }

    std::unique_ptr<zSocket> owned_socket;
    // A request that came in several reads; null for one that came whole, as nearly all do.
    std::unique_ptr<zString> data;
    request_progress progress;
    std::unique_ptr<cHttpBody> pieces;
    std::int64_t sent = 0;     // bytes of the pieces
    std::int64_t dropped = 0;  // bytes that came after the refusal
    std::int64_t since;        // zTime::MicroNow of the last step that counts as life
    http_stage stage = http_stage::request;
    bool is_head_checked = false;
};

}  // namespace pennywort
