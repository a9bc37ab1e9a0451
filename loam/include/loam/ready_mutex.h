// loam/ready_mutex.h - a mutex whose inside comes and goes together with it. The C++ library of
// Windows makes that with the first lock, which then fails for want of memory, in a destructor for
// instance, where it would end the process; and it never gives it back.
#pragma once

#include <mutex>
#include <type_traits>

#include "loam/export.h"

namespace loam {

// Throws std::bad_alloc. A type that is thrown or caught by its name beside an exported class would
// be exported too, by g++ for Windows.
[[noreturn]] LOAM_API void throw_no_memory();

// Gives back the inside of a mutex that nobody holds.
LOAM_API void end_mutex(std::mutex::native_handle_type inside) noexcept;

// Throws only where it is made, and only that there is no memory.
template <typename mutex>
class ready : public mutex {
public:
    ready() {
        try {
            mutex::lock();
            mutex::unlock();
        } catch (...) {
            throw_no_memory();
        }
    }
    ~ready() {
        if constexpr (std::is_trivially_destructible_v<mutex>) end_mutex(mutex::native_handle());
    }
    ready(const ready&) = delete;
    ready& operator=(const ready&) = delete;
};

using ready_mutex = ready<std::mutex>;
using ready_recursive_mutex = ready<std::recursive_mutex>;

}  // namespace loam
