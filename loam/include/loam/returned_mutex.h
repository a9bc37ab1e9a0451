// loam/returned_mutex.h - a mutex that gives back what its system made for it. The C++ library of
// Windows makes that with the first lock, and keeps it for ever.
#pragma once

#include <mutex>
#include <type_traits>

namespace loam {

template <typename mutex>
class returned : public mutex {
public:
    returned() = default;
    ~returned() {
        // Where the C++ library has nothing to do at the end, the threads' library still may. It
        // refuses only a mutex that is held.
        if constexpr (std::is_trivially_destructible_v<mutex>) {
            static_cast<void>(pthread_mutex_destroy(mutex::native_handle()));
        }
    }
    returned(const returned&) = delete;
    returned& operator=(const returned&) = delete;
};

using returned_mutex = returned<std::mutex>;
using returned_recursive_mutex = returned<std::recursive_mutex>;

}  // namespace loam
