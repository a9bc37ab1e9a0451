// host/app/one_line.cpp - see the header for the contract.
#include "host/app/one_line.h"

#include "core/text/utf8.h"

namespace pennywort::host {

namespace {

bool is_control(char32_t point) { return point < 0x20 || (point >= 0x7F && point < 0xA0); }

}  // namespace

std::string in_one_line(std::string_view text) {
    std::string line;
    while (!text.empty()) {
        const text::utf8_piece piece = text::first_character(text);
        const bool is_shown = piece.is_valid && !is_control(piece.point);
        line += is_shown ? text.substr(0, piece.bytes) : std::string_view(" ");
        text.remove_prefix(piece.bytes);
    }
    return line;
}

}  // namespace pennywort::host
