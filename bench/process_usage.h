// process_usage.h - CPU time and memory, as the system accounts for them.
// Twin: process_usage_linux.cpp.
#pragma once

#include <map>

namespace pennywort::bench {

// CPU seconds of this process so far, all threads.
double own_cpu_s();
// The largest resident size that this process has had.
long own_peak_mb();
// CPU seconds of the child processes that have ended and been waited for.
double ended_children_cpu_s();

// What the processes below this one have used and hold just now. A shared page counts once for each
// process that maps it.
struct children_usage {
    std::map<int, double> cpu_s;  // by process
    double resident_mb = 0;
};
children_usage running_children();
// CPU seconds between the two for the processes that are in `later`.
double cpu_between(const children_usage& earlier, const children_usage& later);
long own_resident_mb();

}  // namespace pennywort::bench
