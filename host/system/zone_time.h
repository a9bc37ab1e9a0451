// host/system/zone_time.h - the time of day in a zone that is given by its name. The system's half
// is zone_time_linux.cpp or zone_time_win.cpp.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace pennywort::host {

// Seconds since 1970 of that day and time in a zone such as "Europe/Oslo"; of one that comes twice
// in its night, either. Nothing for a zone that this system does not know. Before the process has
// other threads, which may read the environment meanwhile.
std::optional<std::int64_t> seconds_in_zone(const std::string& zone, const std::tm& local);

}  // namespace pennywort::host
