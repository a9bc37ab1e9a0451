// host/call/call_words.h - what the command "call" says of what went wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "loam/types.h"

namespace pennywort::host {

// A status of the session, with the number of its error and whether a response had begun, or of the
// reader of its response.
std::string words_for_call(zStatus status, std::int32_t error, bool has_head);

// `text` in one line, with nothing in it that a terminal obeys: the server may have written it.
std::string in_one_line(std::string_view text);

}  // namespace pennywort::host
