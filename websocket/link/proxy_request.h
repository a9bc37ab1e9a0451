// proxy_request.h - what is said to a proxy that is to make a tunnel, and the reading of its
// answer. No clock, no I/O.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "core/http/head_parser.h"
#include "websocket/link/link.h"

namespace pennywort::websocket {

class proxy_exchange {
public:
    enum class state { need_more, complete, refused };

    // CONNECT to the host and port of `asked`.
    explicit proxy_exchange(const link_request& asked);

    // The first `size` bytes of `received` have come.
    state take(std::size_t size);
    std::string why() const;

    std::string request;
    std::array<char, 1024> received{};

private:
    http::head_parser m_head{http::head_kind::answer, http::k_tolerant_answers};
    bool m_has_more = false;
};

// Whether `chosen` is an element of a comma-separated list.
bool is_offered(std::string_view offered, std::string_view chosen);

}  // namespace pennywort::websocket
