// websocket/link/valid_text.cpp - see the header for the contract.
#include "websocket/link/valid_text.h"

#include "core/text/utf8.h"

namespace pennywort::websocket {

namespace {

// Goes on from `at` by so many bytes at a time, as long as they are ASCII. The compiler makes a few
// instructions of the inner loop.
template <std::size_t count>
std::size_t ascii_end(std::string_view text, std::size_t at) {
    for (; text.size() - at >= count; at += count) {
        unsigned char all = 0;
        for (std::size_t i = 0; i < count; ++i) all |= static_cast<unsigned char>(text[at + i]);
        if (all >= 0x80) break;
    }
    return at;
}

std::size_t valid_run(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        // Nearly all text is ASCII, and nearly all of it comes in longer runs than this.
        at = ascii_end<8>(text, ascii_end<256>(text, at));
        if (at == text.size()) break;
        const text::utf8_piece next = text::first_character(text.substr(at));
        if (!next.is_valid) break;
        at += next.bytes;
    }
    return at;
}

}  // namespace

bool is_valid_text(std::string_view text) { return valid_run(text) == text.size(); }

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
