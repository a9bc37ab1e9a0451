// http_connections.h - the connections of a server, oldest first, and its watch set beside them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "httpserver/http_connection.h"

namespace pennywort {

class http_connections {
public:
    http_connection* add(std::unique_ptr<zSocket> socket, std::int64_t now);
    // Takes one out, for the caller to end: its body is the host's and may do anything then.
    std::unique_ptr<http_connection> take(std::int32_t index);
    // Closes all sockets; the rest stays.
    void close_all();
    http_connection& at(std::int32_t index);
    std::int32_t count() const;

private:
    std::vector<std::unique_ptr<http_connection>> m_connections;
};

}  // namespace pennywort
