// host/output/frame_rate.cpp - see the header for the contract.
#include "host/output/frame_rate.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "core/text/numbers.h"

namespace pennywort::host {

namespace {

// Digits behind the point, and so the largest power of ten below the line. With it every product
// in time_of stays below 2^63 for runs of a hundred years.
constexpr std::size_t k_decimals = 6;
constexpr std::int64_t k_largest_term = 1'000'000;

constexpr std::pair<std::string_view, std::int64_t> k_ntsc_names[] = {
    {"23.976", 24000}, {"23.98", 24000}, {"29.97", 30000},
    {"47.95", 48000},  {"59.94", 60000}, {"119.88", 120000},
};

std::optional<std::int64_t> whole_number(std::string_view digits) {
    const auto value = text::digits<std::int64_t>(digits);
    return value && *value <= k_largest_term ? value : std::nullopt;
}

using fraction = std::pair<std::int64_t, std::int64_t>;

std::optional<fraction> decimal(std::string_view text) {
    const auto point = text.find('.');
    const auto whole = whole_number(text.substr(0, point));
    if (!whole) return {};
    if (point == std::string_view::npos) return fraction{*whole, 1};
    const auto digits = text.substr(point + 1);
    const auto behind = whole_number(digits);
    if (!behind || digits.size() > k_decimals) return {};
    std::int64_t scale = 1;
    for (std::size_t i = 0; i < digits.size(); ++i) scale *= 10;
    return fraction{*whole * scale + *behind, scale};
}

std::optional<fraction> quotient(std::string_view text) {
    const auto slash = text.find('/');
    const auto above = whole_number(text.substr(0, slash));
    const auto below = whole_number(text.substr(slash + 1));
    if (!above || !below || *below == 0) return {};
    return fraction{*above, *below};
}

std::optional<fraction> any_form(std::string_view text) {
    for (const auto& [name, above] : k_ntsc_names) {
        if (text == name) return fraction{above, 1001};
    }
    return text.find('/') == std::string_view::npos ? decimal(text) : quotient(text);
}

}  // namespace

frame_rate::frame_rate(std::int64_t numerator, std::int64_t denominator)
    : m_numerator(numerator), m_denominator(denominator) {}

std::optional<frame_rate> frame_rate::parse(std::string_view text) {
    const auto parts = any_form(text);
    if (!parts) return {};
    const auto [above, below] = *parts;
    const double value = static_cast<double>(above) / static_cast<double>(below);
    if (value < k_lowest || value > k_highest) return {};
    const std::int64_t divisor = std::gcd(above, below);
    return frame_rate(above / divisor, below / divisor);
}

double frame_rate::value() const {
    return static_cast<double>(m_numerator) / static_cast<double>(m_denominator);
}

std::string frame_rate::text() const {
    if (m_denominator == 1) return std::to_string(m_numerator);
    return std::to_string(m_numerator) + "/" + std::to_string(m_denominator);
}

frame_rate frame_rate::halved() const {
    const std::int64_t below = m_denominator * 2;
    const std::int64_t divisor = std::gcd(m_numerator, below);
    return {m_numerator / divisor, below / divisor};
}

std::chrono::nanoseconds frame_rate::time_of(std::uint64_t number) const {
    const std::int64_t product = static_cast<std::int64_t>(number) * m_denominator;
    const std::int64_t rest = product % m_numerator * 1'000'000'000 / m_numerator;
    return std::chrono::seconds(product / m_numerator) + std::chrono::nanoseconds(rest);
}

std::uint64_t frame_rate::frames_in(double seconds) const {
    const double frames = std::floor(seconds * value() + 0.5);
    return static_cast<std::uint64_t>(std::max(frames, 1.0));
}

}  // namespace pennywort::host
