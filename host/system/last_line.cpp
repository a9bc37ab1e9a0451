// host/system/last_line.cpp - see the header for the contract.
#include "host/system/last_line.h"

#include <algorithm>

#include "core/limits.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"

namespace pennywort::host {

namespace {

bool is_of_a_name(char c) { return c == '_' || text::is_digit(c) || (c >= 'a' && c <= 'z'); }

// "Error initializing output stream 0:1 -- " has the place of a reason, and none in it.
bool breaks_off(std::string_view line) {
    while (!line.empty() && line.back() == ' ') line.remove_suffix(1);
    return line.ends_with("--");
}

}  // namespace

void last_line::add(std::string_view bytes) {
    for (const char c : bytes) {
        const bool line_ends = c == '\n' || c == '\r';
        if (line_ends) {
            end_line();
        } else if (m_current.size() < k_max_last_line) {
            m_current.push_back(c);
        }
    }
}

void last_line::end_line() {
    if (m_current.empty()) return;
    if (!take_report()) {
        if (m_first.empty()) m_first = m_current;
        if (m_last.empty() || !breaks_off(m_current)) m_last.swap(m_current);
    }
    m_current.clear();
}

// Whether the line was a report: a name and an equals sign behind it, without a blank.
bool last_line::take_report() {
    if (m_wanted.empty()) return false;
    const std::string_view line = m_current;
    const auto equals = line.find('=');
    const auto name = line.substr(0, equals);
    if (equals == line.npos || !std::all_of(name.begin(), name.end(), is_of_a_name)) return false;
    if (!m_reported) m_reported = 0;
    const auto number = text::digits<std::uint64_t>(line.substr(equals + 1));
    if (name == m_wanted && number) m_reported = *number;
    return true;
}

}  // namespace pennywort::host
