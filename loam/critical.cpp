// loam/critical.cpp - see the header for the contract.
#include "loam/critical.h"

#include <new>

#include "loam/ready_mutex.h"

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

template <typename mutex>
zCritical* made_critical() {
    try {
        return new critical<mutex>();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

zCritical::zCritical() = default;
zCritical::~zCritical() = default;

zCritical* zCritical::Factory(char recursive) {
    return recursive != 0 ? made_critical<loam::ready_recursive_mutex>()
                          : made_critical<loam::ready_mutex>();
}

zAutoCritical::zAutoCritical(zCritical* critical) : m_critical(critical) {
    if (m_critical != nullptr) m_critical->Lock();
}

zAutoCritical::~zAutoCritical() {
    if (m_critical != nullptr) m_critical->Unlock();
}
