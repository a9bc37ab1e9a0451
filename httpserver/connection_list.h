// connection_list.h - the connections of a server, oldest first.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "httpserver/connection.h"

namespace pennywort::httpserver {

class connection_list {
public:
    connection* add(std::unique_ptr<zSocket> socket, std::int64_t now);
    // Takes one out, for the caller to end: its body is the host's and may do anything then.
    std::unique_ptr<connection> take(std::int32_t index);
    // Closes all sockets; the rest stays.
    void close_all();
    connection& at(std::int32_t index);
    std::int32_t count() const;

private:
    std::vector<std::unique_ptr<connection>> m_connections;
};

}  // namespace pennywort::httpserver
