// host/call/call_words.h - what the command "call" says of what went wrong.
#pragma once

#include <cstdint>
#include <string>

#include "loam/types.h"

namespace pennywort::host {

// A status of the session, with the number of its error and whether a response had begun, or of the
// reader of its response.
std::string words_for_call(zStatus status, std::int32_t error, bool has_head);

}  // namespace pennywort::host
