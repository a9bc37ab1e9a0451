// environment.cpp - see the header for the contract.
#include "core/run/environment.h"

#include "loam/environment_text.h"
#include "loam/trace.h"

namespace pennywort::run {

std::string environment_variable(const char* name) {
    unsigned long error = 0;
    std::string value = loam::environment_text(name, error);
    if (error != 0) {
        zTraceManager::Default()->TraceNote("%s: the environment cannot be read (err=%lu)\n", name,
                                            error);
    }
    return value;
}

}  // namespace pennywort::run
