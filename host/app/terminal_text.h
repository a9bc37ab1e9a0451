// host/app/one_line.h - what others have written, made fit for the user's terminal.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// `text` in one line, with nothing in it that a terminal obeys: each such character, and each byte
// that is no UTF-8, is a blank.
std::string in_one_line(std::string_view text);

}  // namespace pennywort::host
