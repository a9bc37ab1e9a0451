// host/render/page_part.h - which part of a page a picture shows, and when in the page's time that
// is looked for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/render/picture_area.h"
#include "host/render/render_options.h"

namespace pennywort::host {

// Of a picture at the page's time 0 the part is looked for there. Of one at a later moment it is
// where it is then; its window is as large as the part needs from time 0 on all the same, so that
// what comes only into a window has come. All on the display thread.
class page_part {
public:
    // Both must outlive it.
    page_part(const render_options& options, area_port& port) : m_options(options), m_port(port) {}

    // Whether the picture shows less, or more, than the page's own size.
    bool is_wanted() const { return m_options.page.is_full || !m_options.page.element.empty(); }
    // Whether it is looked for once more at the picture's moment.
    bool is_late() const { return is_wanted() && m_options.first_frame > 0; }

    // Looks for it at the page's time 0; whether that is over.
    bool look();
    // The same at the picture's moment, to which the page has come: `over` of its frames are.
    bool look_late(std::uint64_t over);
    // From now on the picture is on its way.
    void take() { m_is_taking = true; }

    // The page's size, which may have grown for it.
    picture_size window() const;
    // What the last look has found.
    const area_finder& found() const;

private:
    std::unique_ptr<area_finder> find_in(const picture_size& window);

    const render_options& m_options;
    area_port& m_port;
    std::unique_ptr<area_finder> m_first;
    std::unique_ptr<area_finder> m_late;
    bool m_has_ended_run_up = false;  // the last frame before the picture's has one behind it
    bool m_is_taking = false;
};

}  // namespace pennywort::host
