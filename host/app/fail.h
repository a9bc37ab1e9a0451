// host/app/fail.h - the line in which a command tells its user why it failed.
#pragma once

#include <cstdio>
#include <string>

#include "host/app/exit_status.h"
#include "host/system/console.h"

namespace pennywort::host {

// `text` is one line without a full stop. Returns the exit status.
inline int fail(const console& out, const std::string& text) {
    std::fprintf(out.errors(), "pennywort: %s\n", text.c_str());
    return k_exit_failed;
}

}  // namespace pennywort::host
