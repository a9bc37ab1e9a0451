// content_types.h - which content type a file's ending stands for.
#pragma once

#include <string_view>

namespace pennywort::httpserver {

// `extension` without its dot, in any case. Never null.
const char* content_type_of(std::string_view extension);

}  // namespace pennywort::httpserver
