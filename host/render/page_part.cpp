// host/render/page_part.cpp - see the header for the contract.
#include "host/render/page_part.h"

#include <utility>

namespace pennywort::host {

std::unique_ptr<area_finder> page_part::find_in(const picture_size& window) {
    auto finder = std::make_unique<area_finder>(
        m_port,
        area_wish{m_options.page.element, window.width, window.height, m_options.page.scale});
    finder->begin();
    return finder;
}

bool page_part::look() {
    if (!m_first) m_first = find_in(window());
    return m_first->is_over();
}

bool page_part::look_late(std::uint64_t over) {
    // The end of a frame at which nothing changes is known with the next.
    if (!std::exchange(m_has_ended_run_up, true)) m_port.show_unseen([](bool) {});
    if (over <= m_options.first_frame || m_is_taking) return false;
    if (!m_late) m_late = find_in(window());
    return m_late->is_over();
}

picture_size page_part::window() const {
    return m_first ? m_first->window() : picture_size{m_options.page_width, m_options.page_height};
}

// A page whose heights follow its window has the size that it had before.
const area_finder& page_part::found() const {
    const bool has_followed = m_options.page.is_full && !m_first->note().empty();
    return m_late && !has_followed ? *m_late : *m_first;
}

}  // namespace pennywort::host
