// httpserver/connection_list.cpp - see the header for the contract.
#include "httpserver/connection_list.h"

#include <utility>

namespace pennywort::httpserver {

connection* connection_list::add(std::unique_ptr<zSocket> socket, std::int64_t now) {
    m_connections.push_back(std::make_unique<connection>(std::move(socket), now));
    return m_connections.back().get();
}

std::unique_ptr<connection> connection_list::take(std::int32_t index) {
    auto taken = std::move(m_connections[static_cast<std::size_t>(index)]);
    m_connections.erase(m_connections.begin() + index);
    return taken;
}

void connection_list::close_all() {
    for (const auto& one : m_connections) one->facade.Close();
}

connection& connection_list::at(std::int32_t index) {
    return *m_connections[static_cast<std::size_t>(index)];
}

std::int32_t connection_list::count() const {
    return static_cast<std::int32_t>(m_connections.size());
}

}  // namespace pennywort::httpserver
