// loam/ready_mutex.h - a mutex whose inside is made together with it. The C++ library of Windows
// makes that with the first lock, which then fails for want of memory: in a destructor for
// instance, where it would end the process.
#pragma once

#include <mutex>
#include <new>

namespace loam {

// Throws only where it is made, and only that there is no memory.
template <typename mutex>
class ready : public mutex {
public:
    ready() {
        try {
            mutex::lock();
            mutex::unlock();
        } catch (...) {
            // By no name: g++ for Windows would export that of a type caught in an exported class.
            throw std::bad_alloc();
        }
    }
};

using ready_mutex = ready<std::mutex>;
using ready_recursive_mutex = ready<std::recursive_mutex>;

}  // namespace loam
