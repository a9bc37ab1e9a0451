// host/app/exit_status.h - the exit statuses of the program.
#pragma once

namespace pennywort::host {

// An interrupted run ends with 128 and the signal's number.
enum exit_status : int {
    k_exit_fine = 0,
    k_exit_failed = 1,
    k_exit_usage = 2,
    k_exit_blocked = 3,      // of the command that asks whether a port is
    k_exit_page_faults = 4,  // of a film that is whole, where the user minds what its pages say
};

}  // namespace pennywort::host
