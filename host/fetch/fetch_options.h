// host/fetch/fetch_options.h - what "pennywort fetch" is to do.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/app/http_options.h"

namespace pennywort::host {

struct fetch_options {
    http_options http;
    std::uint32_t verb = 0;  // as cHttpSession has it
    std::string verb_name;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    bool has_body = false;
    std::string output;  // a file; empty: standard output
};

}  // namespace pennywort::host
