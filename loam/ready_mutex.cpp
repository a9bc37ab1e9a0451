// loam/ready_mutex.cpp - see the header for the contract.
#include "loam/ready_mutex.h"

#include <new>

namespace loam {

void throw_no_memory() { throw std::bad_alloc(); }

}  // namespace loam
