// host/fetch/fetch_options.h - what "pennywort fetch" is to do.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace pennywort::host {

struct fetch_options {
    std::string url;
    std::uint32_t verb = 0;  // as cHttpSession has it
    std::string verb_name;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    bool has_body = false;
    std::string output;  // a file; empty: standard output
    std::string log;     // a file for the transcript; empty: none
    std::string ca_file;
    double timeout = 0;  // seconds, of each wait
};

}  // namespace pennywort::host
