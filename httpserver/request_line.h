// request_line.h - what the first line of a request asks for. No clock, no I/O.
#pragma once

#include <cstdint>
#include <string_view>

namespace pennywort::httpserver {

struct request_line {
    std::string_view path;
    std::string_view extension;  // of the path, behind its last "."
    std::string_view query;      // behind the "?"
};

// As four characters, the first in the highest byte; 0 for a method that is not known, and for
// fewer than 4 bytes. Only the front is compared: a longer word that begins with a method counts
// as that method.
std::uint32_t method_of(std::string_view request);

// The parts lie in `request`. Nothing ends a part but a blank, so that of a line without one they
// may reach into the headers.
request_line parse_request_line(std::string_view request);

}  // namespace pennywort::httpserver
