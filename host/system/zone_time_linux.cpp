// host/system/zone_time_linux.cpp - Linux half of host/system/zone_time.h. Windows half:
// host/system/zone_time_win.cpp.
#include "host/system/zone_time.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "core/text/ascii.h"

namespace pennywort::host {

namespace {

constexpr const char* k_variable = "TZ";

// The system itself takes a zone that it does not know for Greenwich's.
bool is_zone(const std::string& name) {
    const bool is_name = std::all_of(name.begin(), name.end(), [](char c) {
        return text::is_letter(c) || text::is_digit(c) || c == '/' || c == '_' || c == '-' ||
               c == '+';
    });
    if (!is_name || name.empty() || name.front() == '/') return false;
    std::error_code ignored;
    return std::filesystem::is_regular_file("/usr/share/zoneinfo/" + name, ignored);
}

// While it lives, the process is in that zone.
class stay_in_zone {
public:
    explicit stay_in_zone(const std::string& name) {
        if (const char* own = std::getenv(k_variable)) m_own = own;
        ::setenv(k_variable, (":" + name).c_str(), 1);
        ::tzset();
    }
    ~stay_in_zone() {
        if (m_own) {
            ::setenv(k_variable, m_own->c_str(), 1);
        } else {
            ::unsetenv(k_variable);
        }
        ::tzset();
    }
    stay_in_zone(const stay_in_zone&) = delete;
    stay_in_zone& operator=(const stay_in_zone&) = delete;

private:
    std::optional<std::string> m_own;
};

}  // namespace

std::optional<std::int64_t> seconds_in_zone(const std::string& zone, const std::tm& local) {
    if (!is_zone(zone)) return {};
    const stay_in_zone there(zone);
    std::tm time = local;
    time.tm_isdst = -1;
    return std::mktime(&time);
}

}  // namespace pennywort::host
