// host/render/page_date.h - reads the day on which a page is to begin.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// Seconds since 1970 of "2026-11-22", "2026-11-22T18:30", "2026-11-22T18:30:05.5", each in the zone
// of that name, such as "Europe/Oslo", or in the time of this machine without one; with "Z",
// "+01:00" or "-0530" behind a time of day in that zone; and of "@1795372200", which is such a
// number already. Nothing for another text, for a zone that this machine does not know, and for
// what lies before 1970-01-02: a page's 0 stands for now.
std::optional<double> page_date(std::string_view text, const std::string& zone = {});

}  // namespace pennywort::host
