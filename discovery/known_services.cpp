// known_services.cpp - see the header for the contract.
#include "discovery/known_services.h"

#include <utility>

namespace pennywort::discovery {

bool known_services::add(const service_key& key) {
    known& one = m_services[key];
    ++one.copies;
    return !one.is_told;
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
