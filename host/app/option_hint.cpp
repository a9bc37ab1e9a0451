// host/app/option_hint.cpp - see the header for the contract.
#include "host/app/option_hint.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include "core/text/ascii.h"

namespace pennywort::host {

namespace {

constexpr std::pair<const char*, const char*> k_other_names[] = {
    {"r", "fps"},         {"rate", "fps"},          {"framerate", "fps"},    {"frame-rate", "fps"},
    {"s", "size"},        {"width", "size"},        {"height", "size"},      {"resolution", "size"},
    {"viewport", "size"}, {"t", "seconds"},         {"duration", "seconds"}, {"length", "seconds"},
    {"ss", "from"},       {"alpha", "transparent"}, {"bg", "background"},    {"crf", "quality"},
    {"vcodec", "codec"},  {"interlaced", "fields"}, {"fill", "key"},         {"tc", "timecode"},
    {"lang", "locale"},   {"language", "locale"},   {"tz", "timezone"},      {"audio", "mute"},
    {"no-audio", "mute"}, {"silent", "mute"},       {"bind", "listen"},
};

bool has(const std::vector<std::string>& known, const std::string& name) {
    return std::find(known.begin(), known.end(), name) != known.end();
}

// How many letters are to be put in, taken out or changed to make the one of the other.
std::size_t distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t(0));
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// As distance, but two neighbours that have changed places are one slip.
std::size_t slips(const std::string& from, const std::string& to) {
    std::string swapped = from;
    for (std::size_t i = 1; i < from.size(); ++i) {
        std::swap(swapped[i - 1], swapped[i]);
        if (swapped == to) return 1;
        std::swap(swapped[i - 1], swapped[i]);
    }
    return distance(from, to);
}

}  // namespace

std::string meant_option(const std::string& given, const std::vector<std::string>& known) {
    for (const auto& [other, own] : k_other_names) {
        if (given == other && has(known, own)) return own;
    }
    // What is longer than any option is no slip, and would take its time.
    constexpr std::size_t k_longest = 40;
    if (given.size() > k_longest) return {};
    std::string nearest;
    std::size_t least = given.size() / 3 + 1;
    for (const std::string& name : known) {
        const std::size_t letters = distance(given, name);
        if (letters >= least) continue;
        least = letters;
        nearest = name;
    }
    return nearest;
}

std::string meant_word(const std::string& given, const std::vector<std::string>& words) {
    std::string lower = given;
    for (char& letter : lower) letter = text::lower(letter);
    for (const std::string& word : words) {
        if (given != word && slips(lower, word) <= 1) return word;
    }
    return {};
}

}  // namespace pennywort::host
