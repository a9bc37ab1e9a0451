// httpserver/http_connections.cpp - see the header for the contract.
#include "httpserver/http_connections.h"

#include <utility>

namespace pennywort {

http_connection* http_connections::add(std::unique_ptr<zSocket> socket, std::int64_t now) {
    m_connections.push_back(std::make_unique<http_connection>(std::move(socket), now));
    return m_connections.back().get();
}

std::unique_ptr<http_connection> http_connections::take(std::int32_t index) {
    auto taken = std::move(m_connections[static_cast<std::size_t>(index)]);
    m_connections.erase(m_connections.begin() + index);
    return taken;
}

void http_connections::close_all() {
    for (const auto& connection : m_connections) connection->socket->Close();
}

http_connection& http_connections::at(std::int32_t index) {
    return *m_connections[static_cast<std::size_t>(index)];
}

std::int32_t http_connections::count() const {
    return static_cast<std::int32_t>(m_connections.size());
}

}  // namespace pennywort
