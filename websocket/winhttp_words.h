// winhttp_words.h - what an error of WinHTTP means, in words.
#pragma once

#include <string>

namespace pennywort::websocket {

// Empty for none.
std::string words_of_winhttp(unsigned long error);

}  // namespace pennywort::websocket
