// loam/signal.cpp - see the header for the contract.
#include "loam/signal.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

namespace {

class event final : public zSignal {
public:
    // Notifies under the lock: the waiter may delete this object as soon as it has the lock, so
    // nothing here may touch the object after giving it up.
    void Set() override {
        const std::lock_guard lock(m_mutex);
        m_set = true;
        m_changed.notify_one();
    }

    void Reset() override {
        const std::lock_guard lock(m_mutex);
        m_set = false;
    }

    zStatus Wait(std::uint32_t microseconds) override {
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_until(lock, end, [this] { return m_set; })) return -1;
        m_set = false;
        return 0;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

}  // namespace

zSignal::zSignal() = default;
zSignal::~zSignal() = default;

zSignal* zSignal::Factory() { return new (std::nothrow) event(); }
