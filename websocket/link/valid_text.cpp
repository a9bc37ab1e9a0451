// websocket/link/valid_text.cpp - see the header for the contract.
#include "websocket/link/valid_text.h"

#include <cstdint>
#include <cstring>

#include "core/text/utf8.h"

namespace pennywort::websocket {

namespace {

// Nearly all text is ASCII, and nearly all of it comes in longer runs than this.
std::size_t ascii_run(std::string_view text) {
    constexpr std::uint64_t k_high_bits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t eight = 0; at + sizeof eight <= text.size(); at += sizeof eight) {
        std::memcpy(&eight, text.data() + at, sizeof eight);
        if ((eight & k_high_bits) != 0) break;
    }
    return at;
}

std::size_t valid_run(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        at += ascii_run(text.substr(at));
        if (at == text.size()) break;
        const text::utf8_piece next = text::first_character(text.substr(at));
        if (!next.is_valid) break;
        at += next.bytes;
    }
    return at;
}

}  // namespace

std::string valid_text(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::size_t run = valid_run(text);
        valid.append(text.substr(0, run));
        text.remove_prefix(run);
        if (text.empty()) break;
        valid += text::k_replacement_text;
        text.remove_prefix(text::first_character(text).bytes);
    }
    return valid;
}

}  // namespace pennywort::websocket
