// core/run/ready_mutex.cpp - see the header for the contract.
#include "core/run/ready_mutex.h"

#include <new>

namespace pennywort::run {

void throw_no_memory() { throw std::bad_alloc(); }

}  // namespace pennywort::run
