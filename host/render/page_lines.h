// host/render/page_lines.h - which of what pages say is printed, and how often.
#pragma once

#include <set>
#include <string>

#include "host/render/page_sayings.h"
#include "host/render/progress.h"

namespace pennywort::host {

// All on the display thread.
class page_lines {
public:
    // `out` must outlive it. `has_sound`: the film has, and what it lacks of its pages' is told.
    page_lines(progress& out, bool is_verbose, bool has_sound)
        : m_out(out), m_is_verbose(is_verbose), m_has_sound(has_sound) {}

    // Only where everything is to be printed.
    void news(const std::string& line);
    // An error that a page makes in each of its frames is printed once.
    void once(const std::string& line);
    void of_page(const page_saying& said);

    // Of all pages so far.
    const saying_counts& counts() const { return m_counts; }

private:
    void of_its_world(const std::string& line);

    progress& m_out;
    const bool m_is_verbose;
    const bool m_has_sound;
    std::set<std::string> m_errors;  // those that have been printed
    std::set<std::string> m_world_faults;
    saying_counts m_counts;
};

}  // namespace pennywort::host
