// connection.h - what the server knows of one connection.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "core/run/clock.h"
#include "httpserver.h"
#include "httpserver/answer_socket.h"
#include "httpserver/request_progress.h"
#include "httpserver/strict_request.h"

namespace pennywort::httpserver {

enum class stage {
    request,  // waits for a request or the rest of one
    pieces,   // sends the rest of an answer; the next request waits
    parting   // gets no further answer; what still comes is dropped until the peer ends
};

// What becomes of a connection after a step.
enum class fate { stays, ends };

inline std::int64_t micro_now(const run::monotonic_clock& clock) {
    const auto now = clock.now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

// The watch set holds the part that zSocket::Select wants.
struct connection : _zSocket_select {
    connection(std::unique_ptr<zSocket> connected, std::int64_t now)
        : facade(std::move(connected)), since(now) {
        socket = &facade.system();
        requested = zSocket::k_readable;
    }

    answer_socket facade;  // what handlers get
    // A request that came in several reads; null for one that came whole, as nearly all do.
    std::unique_ptr<zString> data;
    request_progress progress;
    // The same for a strict server, and what came behind a request whose answer is on its way.
    std::unique_ptr<strict_request> reader;
    std::string pending;
    std::unique_ptr<cHttpBody> pieces;
    std::int64_t sent = 0;     // bytes of the pieces
    std::int64_t dropped = 0;  // bytes that came while parting
    std::int64_t since;        // micro_now at the last step that counts as life
    stage at = stage::request;
    bool is_trusted = false;
    bool is_last_answer = false;
};

}  // namespace pennywort::httpserver
