// loam/signal.cpp - see the header for the contract.
#include "loam/signal.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>

#include "loam/ready_mutex.h"

namespace {

class event final : public zSignal {
public:
    // Notifies under the lock: the waiter may delete this object as soon as it has the lock, so
    // nothing here may touch the object after giving it up.
    void Set() override {
        const std::lock_guard lock(m_mutex);
        m_is_set = true;
        m_changed.notify_one();
    }

    void Reset() override {
        const std::lock_guard lock(m_mutex);
        m_is_set = false;
    }

    zStatus Wait(std::uint32_t microseconds) override {
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_until(lock, end, [this] { return m_is_set; })) return -1;
        m_is_set = false;
        return 0;
    }

private:
    loam::ready_mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_set = false;
};

}  // namespace

zSignal::zSignal() = default;
zSignal::~zSignal() = default;

zSignal* zSignal::Factory() {
    try {
        auto made = std::make_unique<event>();
        // Makes the inside of the condition too, where the system does that with its first use.
        made->Wait(0);
        return made.release();
    } catch (...) {
        return nullptr;
    }
}
