// loam/out_of_memory.h - the one place that turns a failed allocation into a status.
#pragma once

#include <new>

#include "loam/types.h"

namespace loam {

// What `work` returns, or -1 where it runs out of memory: an operation that returns a status throws
// nothing.
template <typename function>
zStatus unless_out_of_memory(function work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

}  // namespace loam
