// ready_mutex.h - a mutex whose inside is made with it, and goes with it. The C++ library of
// Windows makes that with the first lock, which then fails for want of memory: in a destructor or a
// handler, where that would end the process. loam has its own, which it does not export.
#pragma once

#include <mutex>

#include "loam/returned_mutex.h"

namespace pennywort::run {

// Throws std::bad_alloc. A type that is thrown by its name beside an exported class would be
// exported too, by g++ for Windows.
[[noreturn]] void throw_no_memory();

// Throws only where it is made, and only that there is no memory.
template <typename mutex>
class ready : public loam::returned<mutex> {
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

}  // namespace pennywort::run
