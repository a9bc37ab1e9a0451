// host/output/film_check.cpp - see the header for the contract.
#include "host/output/film_check.h"

#include <array>
#include <bit>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

namespace {

constexpr std::uint64_t k_segment_id = 0x18538067;
constexpr std::uint64_t k_head_id = 0x1A45DFA3;

// The next `count` bytes as one number, its highest byte first.
std::optional<std::uint64_t> number_at(std::istream& film, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) {
        const int byte = film.get();
        if (byte < 0) return {};
        value = value << 8 | static_cast<unsigned>(byte);
    }
    return value;
}

// A QuickTime atom: what it is called, and its length with its own head.
struct atom {
    std::array<char, 4> name{};
    std::uint64_t size = 0;

    bool is(std::string_view other) const { return std::string_view(name.data(), 4) == other; }
};

std::optional<atom> atom_at(std::istream& film, std::uint64_t at) {
    atom found;
    film.seekg(static_cast<std::streamoff>(at));
    const auto size = number_at(film, 4);
    if (!size || !film.read(found.name.data(), 4)) return {};
    // 1: the length follows, in 8 bytes. 0: up to the end, which no finished film says.
    const auto wide = *size == 1 ? number_at(film, 8) : size;
    if (!wide || *wide < 8) return {};
    found.size = *wide;
    return found;
}

bool is_whole_mov(std::istream& film, std::uint64_t size) {
    bool has_index = false;
    std::uint64_t at = 0;
    while (at < size) {
        const auto next = atom_at(film, at);
        if (!next || next->size > size - at) return false;
        has_index = has_index || next->is("moov");
        at += next->size;
    }
    return has_index;
}

// The length of a Matroska element, written in as many bytes as its first one says. Nothing where
// it is left open, as it is until a film is finished.
std::optional<std::uint64_t> element_size(std::istream& film) {
    const int first = film.get();
    if (first <= 0) return {};
    const int more = std::countl_zero(static_cast<std::uint8_t>(first));
    const auto rest = number_at(film, more);
    if (!rest) return {};
    const std::uint64_t all_ones = (std::uint64_t(1) << 7 * (more + 1)) - 1;
    const std::uint64_t value = (static_cast<std::uint64_t>(first) << 8 * more | *rest) & all_ones;
    return value == all_ones ? std::nullopt : std::optional(value);
}

bool is_whole_mkv(std::istream& film, std::uint64_t size) {
    film.seekg(0);
    const auto head_id = number_at(film, 4);
    const auto head = element_size(film);
    if (head_id != k_head_id || !head || *head > size) return false;
    film.seekg(static_cast<std::streamoff>(*head), std::ios::cur);
    if (number_at(film, 4) != k_segment_id) return false;
    const auto segment = element_size(film);
    return segment && film.good() && static_cast<std::uint64_t>(film.tellg()) + *segment == size;
}

// Whether it begins and ends with these bytes.
bool is_between(std::istream& film, std::uint64_t size, std::string_view first,
                std::string_view last) {
    if (size < first.size() + last.size()) return false;
    std::string ends(first.size() + last.size(), '\0');
    film.seekg(0);
    film.read(ends.data(), static_cast<std::streamsize>(first.size()));
    film.seekg(static_cast<std::streamoff>(size - last.size()));
    film.read(ends.data() + first.size(), static_cast<std::streamsize>(last.size()));
    return film.good() && ends == std::string(first).append(last);
}

// RIFF, the length of all that follows, its lowest byte first, and what it is.
bool is_whole_webp(std::istream& film, std::uint64_t size) {
    std::array<char, 12> head{};
    film.seekg(0);
    if (!film.read(head.data(), head.size())) return false;
    std::uint64_t length = 0;
    for (int i = 3; i >= 0; --i) length = length << 8 | static_cast<std::uint8_t>(head[4 + i]);
    const std::string_view text(head.data(), head.size());
    return text.substr(0, 4) == "RIFF" && text.substr(8) == "WEBP" && length + 8 == size;
}

}  // namespace

bool is_whole_film(output_kind kind, std::istream& film, std::uint64_t size) {
    switch (kind) {
        case output_kind::mkv:
        case output_kind::webm:
            return is_whole_mkv(film, size);
        case output_kind::gif:
            return is_between(film, size, "GIF89a", ";");
        case output_kind::jpg:
        case output_kind::jpg_series:
            return is_between(film, size, "\xFF\xD8", "\xFF\xD9");
        case output_kind::webp:
        case output_kind::webp_series:
            return is_whole_webp(film, size);
        default:
            return is_whole_mov(film, size);
    }
}

}  // namespace pennywort::host
