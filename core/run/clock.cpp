// core/run/clock.cpp - see the header for the contract.
#include "core/run/clock.h"

namespace pennywort::run {
namespace {

class system_clock final : public monotonic_clock {
public:
    time now() const noexcept override { return std::chrono::steady_clock::now(); }
};

}  // namespace

const monotonic_clock& monotonic_clock::system() noexcept {
    // Never destroyed: threads that outlive static objects still wait by it.
    static const auto* the_clock = new system_clock;
    return *the_clock;
}

}  // namespace pennywort::run
