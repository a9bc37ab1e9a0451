// loam/ready_mutex.h - a mutex whose inside comes and goes together with it. The C++ library of
// Windows makes that with the first lock, which then fails for want of memory: in a destructor or a
// handler for instance, where that would end the process.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "loam/returned_mutex.h"

namespace loam {

// Throws std::bad_alloc, and does not name it: a type that is thrown or caught by its name beside
// an exported class would be exported too, by g++ for Windows. No memory is as large as is asked
// for.
inline void throw_no_memory() { static_cast<void>(std::allocator<char>().allocate(SIZE_MAX)); }

// Throws only where it is made, and only that there is no memory.
template <typename mutex>
class ready : public returned<mutex> {
public:
    ready() {
        try {
            this->lock();
            this->unlock();
        } catch (...) {
            throw_no_memory();
        }
    }
};

using ready_mutex = ready<std::mutex>;
using ready_recursive_mutex = ready<std::recursive_mutex>;

}  // namespace loam
