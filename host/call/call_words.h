// host/call/call_words.h - what the command "call" says of what went wrong.
#pragma once

#include <string>
#include <string_view>

#include "loam/types.h"

namespace pennywort::host {

// A status of the session or of the reader of its response.
std::string words_for_call(zStatus status);

// `text` in one line, with nothing in it that a terminal obeys: the server may have written it.
std::string in_one_line(std::string_view text);

}  // namespace pennywort::host
