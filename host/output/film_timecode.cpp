// host/output/film_timecode.cpp - see the header for the contract.
#include "host/output/film_timecode.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>

#include "core/text/numbers.h"

namespace pennywort::host {

namespace {

// Frames that a second of the label counts; nothing for a rate that has no timecode.
std::optional<long> counted_frames(const frame_rate& rate) {
    constexpr long k_counted[] = {24, 25, 30, 48, 50, 60, 100, 120};
    const bool is_ntsc = rate.denominator() == 1001 && rate.numerator() % 24000 == 0;
    const bool is_ntsc_30 = rate.denominator() == 1001 && rate.numerator() % 30000 == 0;
    if (rate.denominator() != 1 && !is_ntsc && !is_ntsc_30) return {};
    const long counted =
        static_cast<long>(rate.denominator() == 1 ? rate.numerator() : rate.numerator() / 1000);
    if (std::find(std::begin(k_counted), std::end(k_counted), counted) == std::end(k_counted)) {
        return {};
    }
    return counted;
}

struct label {
    long hours, minutes, seconds, frames;
    bool drops;
};

std::optional<label> label_of(std::string_view text) {
    if (text.size() != 11 || text[2] != ':' || text[5] != ':') return {};
    if (text[8] != ':' && text[8] != ';') return {};
    const auto hours = text::digits<long>(text.substr(0, 2));
    const auto minutes = text::digits<long>(text.substr(3, 2));
    const auto seconds = text::digits<long>(text.substr(6, 2));
    const auto frames = text::digits<long>(text.substr(9, 2));
    if (!hours || !minutes || !seconds || !frames) return {};
    if (*hours > 23 || *minutes > 59 || *seconds > 59) return {};
    return label{*hours, *minutes, *seconds, *frames, text[8] == ';'};
}

}  // namespace

std::string timecode_complaint(std::string_view text, const frame_rate& rate) {
    const std::string what = "--timecode " + std::string(text);
    const auto counted = counted_frames(rate);
    if (!counted) return what + ": there is none for " + rate.text() + " frames a second";
    const auto said = label_of(text);
    if (!said) return what + " is not HH:MM:SS:FF";
    if (said->frames >= *counted) {
        return what + ": frames go from 00 to " + std::to_string(*counted - 1) + " here";
    }
    if (!said->drops) return {};
    if (rate.denominator() != 1001 || *counted % 30 != 0) {
        return what + ": numbers are left out (;) at 29.97, 59.94 and 119.88 frames a second alone";
    }
    const bool is_left_out =
        said->minutes % 10 != 0 && said->seconds == 0 && said->frames < *counted / 15;
    return is_left_out ? what + " is one of the numbers that are left out" : std::string();
}

}  // namespace pennywort::host
