// valid_text.h - text as a WebSocket may carry it.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::websocket {

bool is_valid_text(std::string_view text);

// `text` with U+FFFD in place of each piece that is no UTF-8.
std::string valid_text(std::string_view text);

}  // namespace pennywort::websocket
