// host/app/terminal_text.h - what others have written, made fit for the user's terminal.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// Whether a terminal shows the character and does nothing else. It obeys control characters; others
// break the line, turn the direction of what follows, or are seen by nobody, so that two names look
// the same.
bool is_plain(char32_t point);

// `text` in one line: each character that is not plain, and each byte that is no UTF-8, is a blank.
std::string in_one_line(std::string_view text);

// The same with their bytes as \xNN, where nothing may be lost.
std::string with_codes(std::string_view text);

}  // namespace pennywort::host
