// core/http/http_date.cpp - see the header for the contract.
#include "core/http/http_date.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "core/text/numbers.h"

namespace pennywort::http {
namespace {

constexpr std::array<std::string_view, 7> k_days = {"Sun", "Mon", "Tue", "Wed",
                                                    "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 7> k_long_days = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> k_months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::int64_t k_day_seconds = 86400;

struct written_date {
    std::string_view day;
    std::string_view month;
    std::string_view year;
    std::string_view time;
};

int year_at(std::int64_t seconds) {
    const std::chrono::sys_days day{std::chrono::days(seconds / k_day_seconds)};
    return static_cast<int>(std::chrono::year_month_day(day).year());
}

int full_year(int two_digits, std::int64_t now) {
    const int this_year = year_at(now);
    const int year = this_year - this_year % 100 + two_digits;
    return year > this_year + 50 ? year - 100 : year;
}

std::optional<std::int64_t> time_from(std::string_view text) {
    if (text.size() != 8 || text[2] != ':' || text[5] != ':') return std::nullopt;
    const auto hours = text::digits<int>(text.substr(0, 2));
    const auto minutes = text::digits<int>(text.substr(3, 2));
    const auto seconds = text::digits<int>(text.substr(6, 2));
    if (!hours || !minutes || !seconds) return std::nullopt;
    // The 60th second is a leap second.
    if (*hours > 23 || *minutes > 59 || *seconds > 60) return std::nullopt;
    return *hours * 3600 + *minutes * 60 + *seconds;
}

std::optional<std::int64_t> moment_of(const written_date& date, std::int64_t now) {
    const auto month = std::find(k_months.begin(), k_months.end(), date.month);
    const bool is_one_digit = date.day.size() == 2 && date.day[0] == ' ';
    const auto day = text::digits<unsigned>(date.day.substr(is_one_digit ? 1 : 0));
    const auto year = text::digits<int>(date.year);
    const auto time = time_from(date.time);
    if (month == k_months.end() || !day || !year || !time) return std::nullopt;
    const int whole_year = date.year.size() == 2 ? full_year(*year, now) : *year;
    const std::chrono::year_month_day when{
        std::chrono::year(whole_year),
        std::chrono::month(static_cast<unsigned>(month - k_months.begin()) + 1),
        std::chrono::day(*day)};
    if (!when.ok()) return std::nullopt;
    return std::chrono::sys_days(when).time_since_epoch().count() * k_day_seconds + *time;
}

template <std::size_t count>
bool is_one_of(std::string_view text, const std::array<std::string_view, count>& names) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

}  // namespace

std::string date_text(std::int64_t seconds) {
    const std::int64_t count = std::max<std::int64_t>(seconds, 0);
    const std::chrono::sys_days day{std::chrono::days(count / k_day_seconds)};
    const std::chrono::year_month_day date(day);
    const std::int64_t time = count % k_day_seconds;
    char text[64];
    const int length = std::snprintf(text, sizeof text, "%s, %02u %s %04d %02d:%02d:%02d GMT",
                                     k_days[std::chrono::weekday(day).c_encoding()].data(),
                                     static_cast<unsigned>(date.day()),
                                     k_months[static_cast<unsigned>(date.month()) - 1].data(),
                                     static_cast<int>(date.year()), static_cast<int>(time / 3600),
                                     static_cast<int>(time / 60 % 60), static_cast<int>(time % 60));
    return {text, static_cast<std::size_t>(length)};
}

// "Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994".
std::optional<std::int64_t> date_from(std::string_view text, std::int64_t now) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) {
        const bool is_plain = text.size() == 24 && is_one_of(text.substr(0, 3), k_days) &&
                              text[3] == ' ' && text[7] == ' ' && text[10] == ' ' &&
                              text[19] == ' ';
        if (!is_plain) return std::nullopt;
        return moment_of(
            {text.substr(8, 2), text.substr(4, 3), text.substr(20), text.substr(11, 8)}, now);
    }
    const std::string_view name = text.substr(0, comma);
    const std::string_view rest = text.substr(comma + 1);
    const bool is_new = rest.size() == 25 && rest[3] == ' ' && rest[7] == ' ';
    const bool is_old = rest.size() == 23 && rest[3] == '-' && rest[7] == '-';
    const bool is_named = is_new ? is_one_of(name, k_days) : is_one_of(name, k_long_days);
    if (!(is_new || is_old) || !is_named || rest[0] != ' ') return std::nullopt;
    const std::size_t year_size = is_new ? 4 : 2;
    const std::string_view behind = rest.substr(8 + year_size);
    if (behind[0] != ' ' || behind.substr(9) != " GMT") return std::nullopt;
    return moment_of(
        {rest.substr(1, 2), rest.substr(4, 3), rest.substr(8, year_size), behind.substr(1, 8)},
        now);
}

}  // namespace pennywort::http
