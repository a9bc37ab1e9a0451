// sha1.h - the digest that the accept key of a WebSocket is made of.
#pragma once

#include <string>
#include <string_view>

// 20 bytes.
std::string sha1(std::string_view text);
