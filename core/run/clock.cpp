// core/run/clock.cpp - see the header for the contract.
#include "core/run/clock.h"

#include <cstddef>
#include <new>

namespace pennywort::run {
namespace {

class system_clock final : public monotonic_clock {
public:
    time now() const noexcept override { return std::chrono::steady_clock::now(); }
};

}  // namespace

const monotonic_clock& monotonic_clock::system() noexcept {
    // Never destroyed: threads that outlive static objects still wait by it. In a place of its own:
    // a first use that finds no memory would end the process.
    alignas(system_clock) static std::byte place[sizeof(system_clock)];
    static const auto& the_clock = *new (place) system_clock;
    return the_clock;
}

}  // namespace pennywort::run
