// host/call/call.h - one call of a server by XML-RPC, and its result on standard output.
#pragma once

#include <memory>
#include <string>

#include "host/app/http_options.h"
#include "host/system/console.h"
#include "loam/record.h"

namespace pennywort::host {

struct call_options {
    http_options http;
    std::shared_ptr<zRecord> request;  // the call
};

enum call_exit : int {
    k_exit_fault = 3,  // the server's answer is a fault
};

// Returns the exit status; what went wrong has been told in one line by then.
int call(const call_options& options, const console& out);

}  // namespace pennywort::host
