// program_linux.cpp - see program.h.
#include <sys/wait.h>

#include "tests/host/program.h"

namespace pennywort::host {

int exit_status(int system_result) {
    return WIFEXITED(system_result) ? WEXITSTATUS(system_result) : 128 + WTERMSIG(system_result);
}

}  // namespace pennywort::host
