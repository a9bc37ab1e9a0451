// host/system/last_line.cpp - see the header for the contract.
#include "host/system/last_line.h"

#include "core/limits.h"

namespace pennywort::host {

void last_line::add(std::string_view bytes) {
    for (const char c : bytes) {
        const bool line_ends = c == '\n' || c == '\r';
        if (line_ends && !m_current.empty()) {
            m_last.swap(m_current);
            m_current.clear();
        } else if (!line_ends && m_current.size() < k_max_last_line) {
            m_current.push_back(c);
        }
    }
}

}  // namespace pennywort::host
