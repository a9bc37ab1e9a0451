// host/system/zone_time_win.cpp - Windows half of host/system/zone_time.h. Linux half:
// host/system/zone_time_linux.cpp.
#include "host/system/zone_time.h"

namespace pennywort::host {

// Windows has other names for zones than browsers have.
std::optional<std::int64_t> seconds_in_zone(const std::string&, const std::tm&) { return {}; }

}  // namespace pennywort::host
