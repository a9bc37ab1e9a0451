// known_services.cpp - see the header for the contract.
#include "discovery/known_services.h"

#include <algorithm>
#include <utility>

namespace pennywort::discovery {

bool known_services::add(const service_key& key, std::uint32_t interface_index) {
    const auto found = m_services.find(key);
    if (found == m_services.end() && m_services.size() >= k_max_known_services) return false;
    known& one = found != m_services.end() ? found->second : m_services[key];
    if (++one.copies == 1) one.stay = ++m_last_stay;
    auto& interfaces = one.interfaces;
    if (one.is_told || std::count(interfaces.begin(), interfaces.end(), interface_index) != 0) {
        return true;
    }
    wait(key, one);
    interfaces.push_back(interface_index);
    return true;
}

std::optional<service_to_look_up> known_services::next() {
    while (!m_waiting.empty()) {
        service_to_look_up first{m_waiting.front()};
        known& one = m_services[first.key];
        if (one.is_told || one.interfaces.empty()) {
            stop_waiting(one);
            continue;
        }
        first.interface_index = one.interfaces.front();
        first.stay = one.stay;
        one.interfaces.erase(one.interfaces.begin());
        if (one.interfaces.empty()) {
            stop_waiting(one);
        } else {
            m_waiting.splice(m_waiting.end(), m_waiting, one.place);
        }
        return first;
    }
    return std::nullopt;
}

void known_services::wait(const service_key& key, known& one) {
    if (one.is_waiting) return;
    one.place = m_waiting.insert(m_waiting.end(), key);
    one.is_waiting = true;
}

void known_services::stop_waiting(known& one) {
    if (std::exchange(one.is_waiting, false)) m_waiting.erase(one.place);
    one.interfaces.clear();
}

bool known_services::is_wanted(const service_key& key, std::uint64_t stay) const {
    const auto found = m_services.find(key);
    return found != m_services.end() && found->second.stay == stay && !found->second.is_told;
}

bool known_services::tell(const service_key& key, std::uint64_t stay,
                          const service_details& details) {
    if (!is_wanted(key, stay)) return false;
    known& one = m_services[key];
    one.details = details;
    one.is_told = true;
    return true;
}

bool known_services::remove(const service_key& key, service_details& details) {
    const auto found = m_services.find(key);
    if (found == m_services.end() || --found->second.copies > 0) return false;
    const bool was_told = found->second.is_told;
    details = std::move(found->second.details);
    stop_waiting(found->second);
    m_services.erase(found);
    return was_told;
}

}  // namespace pennywort::discovery
