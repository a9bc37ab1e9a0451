// host/output/output_target.cpp - see the header for the contract.
#include "host/output/output_target.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "core/text/ascii.h"
#include "host/system/file_path.h"

namespace pennywort::host {

namespace {

// Wider numbers than this no run of ours can reach.
constexpr std::size_t k_widest = 12;

constexpr std::pair<std::string_view, output_kind> k_endings[] = {
    {"png", output_kind::png},  {"y4m", output_kind::y4m},   {"raw", output_kind::raw},
    {"bgra", output_kind::raw}, {"mkv", output_kind::mkv},   {"mov", output_kind::mov},
    {"mp4", output_kind::mp4},  {"webm", output_kind::webm}, {"gif", output_kind::gif},
    {"jpg", output_kind::jpg},  {"jpeg", output_kind::jpg},  {"webp", output_kind::webp},
    {"wav", output_kind::wav},
};

output_kind series_of(output_kind picture) {
    if (picture == output_kind::jpg) return output_kind::jpg_series;
    return picture == output_kind::webp ? output_kind::webp_series : output_kind::png_series;
}

// A percent sign stands for itself only if there are two.
std::string with_percent_signs_doubled(const std::string& text) {
    std::string doubled;
    for (const char c : text) doubled.append(c == '%' ? 2 : 1, c);
    return doubled;
}

std::optional<output_kind> kind_of_ending(std::string_view path) {
    const auto name = path.substr(path.find_last_of('/') + 1);
    const auto dot = name.find_last_of('.');
    if (dot == std::string_view::npos) return {};
    const std::string ending = text::lower(name.substr(dot + 1));
    for (const auto& [known, kind] : k_endings) {
        if (ending == known) return kind;
    }
    return {};
}

std::optional<output_kind> kind_of_format(std::string_view format) {
    if (format == "y4m") return output_kind::y4m;
    if (format == "raw") return output_kind::raw;
    if (format == "matroska") return output_kind::matroska;
    return {};
}

}  // namespace

bool is_single_picture(output_kind kind) {
    return kind == output_kind::png || kind == output_kind::jpg || kind == output_kind::webp;
}

bool is_series(output_kind kind) {
    return kind == output_kind::png_series || kind == output_kind::jpg_series ||
           kind == output_kind::webp_series;
}

bool is_made_by_ffmpeg(output_kind kind) { return kind >= output_kind::mkv; }

bool holds_sound(output_kind kind) {
    switch (kind) {
        case output_kind::matroska:
        case output_kind::wav:
        case output_kind::mkv:
        case output_kind::mov:
        case output_kind::mp4:
        case output_kind::webm:
            return true;
        default:
            return false;
    }
}

bool is_stream_format(std::string_view format) { return kind_of_format(format).has_value(); }

// `at` stands behind the percent sign, and behind the whole conversion afterwards.
bool name_pattern::take_conversion(std::string_view text, std::size_t& at) {
    if (at < text.size() && text[at] == '0') {
        m_filler = '0';
        ++at;
    }
    for (; at < text.size() && text::is_digit(text[at]); ++at) {
        m_width = m_width * 10 + static_cast<std::size_t>(text[at] - '0');
        if (m_width > k_widest) return false;
    }
    return at < text.size() && text[at++] == 'd';
}

std::optional<name_pattern> name_pattern::parse(std::string_view text, std::string& reason) {
    name_pattern pattern;
    bool found = false;
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at++];
        std::string& part = found ? pattern.m_behind : pattern.m_before;
        if (c != '%' || text.substr(at, 1) == "%") {
            part.push_back(c);
            if (c == '%') ++at;
            continue;
        }
        if (found || !pattern.take_conversion(text, at)) {
            reason =
                "the name of a series needs exactly one %d, as in frames-%05d.png; %% stands for a "
                "percent sign";
            return {};
        }
        found = true;
    }
    if (found) return pattern;
    reason = "no place for the number";
    return {};
}

std::optional<std::string> name_pattern::plain_name(std::string_view text) {
    std::string name;
    for (std::size_t at = 0; at < text.size(); ++at) {
        name.push_back(text[at]);
        if (text[at] == '%' && text.substr(++at, 1) != "%") return {};
    }
    return name;
}

std::string name_pattern::name_of(std::uint64_t number) const {
    const std::string digits = std::to_string(number);
    const std::size_t missing = m_width > digits.size() ? m_width - digits.size() : 0;
    return m_before + std::string(missing, m_filler) + digits + m_behind;
}

std::string name_pattern::fixed_name() const {
    constexpr const char* k_may_be_of_number = "0123456789 ";
    const auto begin = m_before.find_last_not_of(k_may_be_of_number);
    const auto end = m_behind.find_first_not_of(k_may_be_of_number);
    return m_before.substr(0, begin == std::string::npos ? 0 : begin + 1) + "%" +
           (end == std::string::npos ? "" : m_behind.substr(end));
}

std::optional<std::string> name_pattern::for_ffmpeg() const {
    if (m_filler == ' ' && m_width > 1) return {};
    const std::string width = m_width == 0 ? "" : "0" + std::to_string(m_width);
    return with_percent_signs_doubled(m_before) + "%" + width + "d" +
           with_percent_signs_doubled(m_behind);
}

bool output_target::is_file() const {
    if (kind == output_kind::none || to_standard_output()) return false;
    std::error_code none;
    const auto there = std::filesystem::status(file_path(path), none);
    return !std::filesystem::exists(there) || std::filesystem::is_regular_file(there);
}

std::optional<output_target> output_target::parse(std::string_view text, std::string_view format,
                                                  std::string& reason) {
    output_target target;
    target.path = text;
    const auto wanted = kind_of_format(format);
    const auto named = target.to_standard_output() ? output_kind::y4m : kind_of_ending(text);
    if (text.empty() || (!named && !wanted)) {
        reason =
            "an output is a name ending in .mov, .mp4, .mkv, .webm, .gif, .png, .jpg, .webp, .wav, "
            ".y4m "
            "or .raw, or - for a pipe";
        return {};
    }
    target.kind = wanted.value_or(named.value_or(output_kind::none));
    if (wanted && named && *named != *wanted && !target.to_standard_output()) {
        reason = "--format and the ending of " + target.path + " contradict each other";
        return {};
    }
    const bool has_percent_sign = text.find('%') != std::string_view::npos;
    if (!is_single_picture(target.kind) || !has_percent_sign) return target;
    // "50%%.png" is one picture; without its number it is no series.
    if (auto name = name_pattern::plain_name(text)) {
        target.path = std::move(*name);
        return target;
    }
    target.pattern = name_pattern::parse(text, reason);
    if (!target.pattern) return {};
    target.kind = series_of(target.kind);
    return target;
}

}  // namespace pennywort::host
