// host/render/page_lines.cpp - see the header for the contract.
#include "host/render/page_lines.h"

#include "core/limits.h"

namespace pennywort::host {

void page_lines::news(const std::string& line) {
    if (m_is_verbose) m_out.say(line);
}

void page_lines::once(const std::string& line) {
    const bool is_new = m_errors.size() < k_max_told_script_errors && m_errors.insert(line).second;
    if (m_is_verbose || is_new) m_out.say(line);
}

// What the film lacks of it, or does not have at its time. A page may write such lines itself.
void page_lines::of_its_world(const std::string& line) {
    constexpr std::size_t k_most = 100;
    if (m_world_faults.size() > k_most || !m_world_faults.insert(line).second) return;
    const bool is_last = m_world_faults.size() > k_most;
    m_out.say(is_last ? "pages have more lines of this kind" : "page: " + line);
}

void page_lines::of_page(const page_saying& said) {
    if (said.kind == saying_kind::sound) {
        if (m_has_sound) of_its_world(said.line);
        return;
    }
    if (said.kind == saying_kind::clock) return of_its_world(said.line);
    m_counts.count(said.kind);
    const bool is_fault = said.kind == saying_kind::error || said.kind == saying_kind::rejection ||
                          said.kind == saying_kind::media;
    is_fault ? once("page: " + said.line) : news("page: " + said.line);
}

}  // namespace pennywort::host
