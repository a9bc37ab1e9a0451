// host/fetch/fetch_progress.cpp - see the header for the contract.
#include "host/fetch/fetch_progress.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace pennywort::host {

namespace {

constexpr std::size_t k_longest_bytes_bar = 30;
constexpr std::size_t k_shortest_bytes_bar = 5;

std::string time_left(double seconds) {
    const auto whole = static_cast<long long>(std::clamp(seconds, 0.0, 359999.0));
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
    return text.data();
}

std::string bar(std::uint64_t received, std::uint64_t total, std::size_t length) {
    const double part = static_cast<double>(received) / static_cast<double>(total);
    const auto full = static_cast<std::size_t>(std::min(part, 1.0) * static_cast<double>(length));
    return "[" + std::string(full, '#') + std::string(length - full, '.') + "]  ";
}

}  // namespace

std::string byte_count(std::uint64_t bytes) {
    constexpr std::array<const char*, 5> k_units = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    // What would be shown as "1000.0" is one of the next unit.
    for (; value >= 999.95 && unit + 1 < k_units.size(); ++unit) value /= 1000;
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value,
                  k_units[unit]);
    return text.data();
}

std::string fetch_line(std::uint64_t received, std::uint64_t total, double seconds, int columns) {
    const double rate = seconds > 0 ? static_cast<double>(received) / seconds : 0;
    std::string text = byte_count(received);
    if (total > 0) text += " of " + byte_count(total);
    text += "  " + byte_count(static_cast<std::uint64_t>(rate)) + "/s";
    if (total > received && rate > 0) {
        text += "  " + time_left(static_cast<double>(total - received) / rate) + " left";
    }
    const auto width = static_cast<std::size_t>(std::max(columns - 1, 0));
    if (total > 0 && width >= text.size() + k_shortest_bytes_bar + 4) {
        text = bar(received, total, std::min(width - text.size() - 4, k_longest_bytes_bar)) + text;
    }
    return text.substr(0, width);
}

}  // namespace pennywort::host
