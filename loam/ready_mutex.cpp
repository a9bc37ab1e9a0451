// loam/ready_mutex.cpp - see the header for the contract.
#include "loam/ready_mutex.h"

#include <pthread.h>

#include <new>

namespace loam {

void throw_no_memory() { throw std::bad_alloc(); }

// It fails only for one that is held.
void end_mutex(std::mutex::native_handle_type inside) noexcept {
    static_cast<void>(pthread_mutex_destroy(inside));
}

}  // namespace loam
