// host/app/terminal_text.cpp - see the header for the contract.
#include "host/app/terminal_text.h"

#include <cstdio>

#include "core/text/utf8.h"

namespace pennywort::host {

namespace {

bool is_control(char32_t point) { return point < 0x20 || (point >= 0x7F && point < 0xA0); }

bool is_unseen(char32_t point) {
    return point == 0xAD || point == 0x61C || point == 0x180E ||
           (point >= 0x200B && point <= 0x200F) || (point >= 0x2028 && point <= 0x202E) ||
           (point >= 0x2060 && point <= 0x206F) || point == 0xFEFF ||
           (point >= 0xFFF9 && point <= 0xFFFB);
}

// `text` with what `instead` makes of the bytes of each character that is not plain.
template <typename function>
std::string with_plain(std::string_view text, function instead) {
    std::string made;
    while (!text.empty()) {
        const text::utf8_piece piece = text::first_character(text);
        const std::string_view bytes = text.substr(0, piece.bytes);
        if (piece.is_valid && is_plain(piece.point)) {
            made += bytes;
        } else {
            instead(made, bytes);
        }
        text.remove_prefix(piece.bytes);
    }
    return made;
}

}  // namespace

bool is_plain(char32_t point) { return !is_control(point) && !is_unseen(point); }

std::string in_one_line(std::string_view text) {
    return with_plain(text, [](std::string& made, std::string_view) { made += ' '; });
}

std::string with_codes(std::string_view text) {
    return with_plain(text, [](std::string& made, std::string_view bytes) {
        for (const char c : bytes) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned char>(c));
            made += code;
        }
    });
}

}  // namespace pennywort::host
