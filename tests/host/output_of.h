// tests/host/output_of.h - what a shell's command writes to its standard output.
#pragma once

#include <cstdio>
#include <string>

namespace pennywort::host {

inline std::string output_of(const std::string& command) {
    std::string text;
    std::FILE* pipe = popen(command.c_str(), "r");
    char some[4096];
    for (std::size_t n; pipe && (n = fread(some, 1, sizeof some, pipe)) > 0;) text.append(some, n);
    if (pipe) pclose(pipe);
    return text;
}

}  // namespace pennywort::host
