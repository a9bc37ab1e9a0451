// host/render/page_date.cpp - see the header for the contract.
#include "host/render/page_date.h"

#include <chrono>
#include <ctime>
#include <string>

#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "host/system/zone_time.h"

namespace pennywort::host {

namespace {

constexpr double k_day = 24 * 60 * 60;
// To the end of the year 9999, behind which a year has five digits.
constexpr double k_latest = 253'402'300'799;

// Takes its parts from the front of a text.
class date_reader {
public:
    explicit date_reader(std::string_view text) : m_rest(text) {}

    // Exactly so many digits, for a number between the two.
    bool digits(std::size_t count, int lowest, int highest, int& out) {
        const auto part = m_rest.substr(0, count);
        const auto value = text::digits<int>(part);
        if (part.size() != count || !value || *value < lowest || *value > highest) return false;
        out = *value;
        m_rest.remove_prefix(count);
        return true;
    }
    bool mark(char c) {
        if (m_rest.empty() || m_rest.front() != c) return false;
        m_rest.remove_prefix(1);
        return true;
    }
    // What stands behind the point of the seconds.
    bool fraction(double& out) {
        std::size_t count = 0;
        while (count < m_rest.size() && text::is_digit(m_rest[count])) ++count;
        const auto value = text::decimal("0." + std::string(m_rest.substr(0, count)));
        if (count == 0 || !value) return false;
        out = *value;
        m_rest.remove_prefix(count);
        return true;
    }
    bool at_end() const { return m_rest.empty(); }

private:
    std::string_view m_rest;
};

struct moment {
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    double fraction = 0;
    bool has_zone = false;
    int zone_seconds = 0;  // east of Greenwich
};

bool read_day(date_reader& from, moment& out) {
    if (!from.digits(4, 1970, 9999, out.year) || !from.mark('-')) return false;
    if (!from.digits(2, 1, 12, out.month) || !from.mark('-')) return false;
    if (!from.digits(2, 1, 31, out.day)) return false;
    using namespace std::chrono;
    return year_month_day(year(out.year), month(static_cast<unsigned>(out.month)),
                          day(static_cast<unsigned>(out.day)))
        .ok();
}

bool read_time(date_reader& from, moment& out) {
    if (!from.digits(2, 0, 23, out.hour) || !from.mark(':')) return false;
    if (!from.digits(2, 0, 59, out.minute)) return false;
    if (!from.mark(':')) return true;
    if (!from.digits(2, 0, 59, out.second)) return false;
    return !from.mark('.') || from.fraction(out.fraction);
}

bool read_zone(date_reader& from, moment& out) {
    out.has_zone = true;
    if (from.mark('Z')) return true;
    const bool is_west = from.mark('-');
    if (!is_west && !from.mark('+')) {
        out.has_zone = false;
        return true;
    }
    int hours = 0;
    int minutes = 0;
    if (!from.digits(2, 0, 14, hours)) return false;
    from.mark(':');
    if (!from.digits(2, 0, 59, minutes)) return false;
    out.zone_seconds = (hours * 60 + minutes) * 60 * (is_west ? -1 : 1);
    return true;
}

double seconds_of(const moment& at) {
    using namespace std::chrono;
    const sys_days day_of(year(at.year) / at.month / at.day);
    const auto whole = seconds(day_of.time_since_epoch()) + hours(at.hour) + minutes(at.minute) +
                       seconds(at.second - at.zone_seconds);
    return static_cast<double>(whole.count()) + at.fraction;
}

std::optional<double> seconds_in(const std::string& zone, const moment& at) {
    std::tm local{};
    local.tm_year = at.year - 1900;
    local.tm_mon = at.month - 1;
    local.tm_mday = at.day;
    local.tm_hour = at.hour;
    local.tm_min = at.minute;
    local.tm_sec = at.second;
    local.tm_isdst = -1;
    if (zone.empty()) return static_cast<double>(std::mktime(&local)) + at.fraction;
    const auto whole = seconds_in_zone(zone, local);
    if (!whole) return {};
    return static_cast<double>(*whole) + at.fraction;
}

std::optional<double> in_range(double seconds) {
    return seconds >= k_day && seconds <= k_latest ? std::optional(seconds) : std::nullopt;
}

}  // namespace

std::optional<double> page_date(std::string_view text, const std::string& zone) {
    if (text.substr(0, 1) == "@") {
        const auto seconds = text::decimal(text.substr(1));
        return seconds ? in_range(*seconds) : std::nullopt;
    }
    date_reader from(text);
    moment at;
    if (!read_day(from, at)) return {};
    if (!from.at_end()) {
        if (!from.mark('T') && !from.mark(' ')) return {};
        if (!read_time(from, at) || !read_zone(from, at) || !from.at_end()) return {};
    }
    const auto seconds = at.has_zone ? std::optional(seconds_of(at)) : seconds_in(zone, at);
    return seconds ? in_range(*seconds) : std::nullopt;
}

}  // namespace pennywort::host
