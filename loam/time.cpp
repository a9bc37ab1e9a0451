// loam/time.cpp - see the header for the contract.
#include "loam/time.h"

#include <chrono>

namespace {

template <typename clock>
std::int64_t micro_now() {
    const auto now = clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

std::int64_t zTime::MicroNow() {
    using std::chrono::steady_clock;
    using std::chrono::system_clock;
    static const std::int64_t s_begin = micro_now<system_clock>() - micro_now<steady_clock>();
    return s_begin + micro_now<steady_clock>();
}
