// eventually.h - waits of a test that come to an end.
#pragma once

#include <chrono>
#include <thread>

namespace pennywort::tests {

// Longer than a busy machine takes for anything here. It ends a test that would hang; none passes
// because of it.
constexpr std::chrono::seconds k_patience{60};

// Gives other threads their turn until `condition`; false if that does not come in time.
template <class Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + k_patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace pennywort::tests
