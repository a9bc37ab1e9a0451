// known_services.cpp - see the header for the contract.
#include "discovery/known_services.h"

#include <utility>

namespace pennywort::discovery {

void known_services::add(const service_key& key, std::uint32_t interface_index) {
    known& one = m_services[key];
    ++one.copies;
    if (!one.is_told) m_waiting.push_back({key, interface_index});
}

std::optional<service_to_look_up> known_services::next() {
    while (!m_waiting.empty()) {
        service_to_look_up first = std::move(m_waiting.front());
        m_waiting.pop_front();
        const auto found = m_services.find(first.key);
        if (found != m_services.end() && !found->second.is_told) return first;
    }
    return std::nullopt;
}

bool known_services::tell(const service_key& key, const service_details& details) {
    const auto found = m_services.find(key);
    if (found == m_services.end() || found->second.is_told) return false;
    found->second.details = details;
    found->second.is_told = true;
    return true;
}

bool known_services::remove(const service_key& key, service_details& details) {
    const auto found = m_services.find(key);
    if (found == m_services.end() || --found->second.copies > 0) return false;
    const bool was_told = found->second.is_told;
    details = std::move(found->second.details);
    m_services.erase(found);
    return was_told;
}

}  // namespace pennywort::discovery
