// host/call/call_argument.h - an argument of the command "call", which is JSON.
#pragma once

#include <string>

#include "host/app/json.h"

namespace pennywort::host {

// Returns what is wrong, fit to stand behind the text; an empty text if nothing is. Refused is also
// what would be sent as something else: a whole number past 64 bits, a name that stands twice.
std::string read_argument(const std::string& text, json& value);

}  // namespace pennywort::host
