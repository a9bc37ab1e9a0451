// loam/critical.cpp - see the header for the contract.
#include "loam/critical.h"

#include <mutex>
#include <new>

namespace {

template <typename mutex>
class critical final : public zCritical {
public:
    void Lock() override { m_mutex.lock(); }
    void Unlock() override { m_mutex.unlock(); }
    bool TryLock() override { return m_mutex.try_lock(); }

private:
    mutex m_mutex;
};

}  // namespace

zCritical::zCritical() = default;
zCritical::~zCritical() = default;

zCritical* zCritical::Factory(char recursive) {
    if (recursive != 0) return new (std::nothrow) critical<std::recursive_mutex>();
    return new (std::nothrow) critical<std::mutex>();
}

zAutoCritical::zAutoCritical(zCritical* critical) : m_critical(critical) {
    if (m_critical != nullptr) m_critical->Lock();
}

zAutoCritical::~zAutoCritical() {
    if (m_critical != nullptr) m_critical->Unlock();
}
