// loam/ref_count.cpp - see the header for the contract.
#include "loam/ref_count.h"

zRefCount::~zRefCount() = default;

std::int32_t zRefCount::AddRef() {
    return m_references.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::int32_t zRefCount::Release() {
    // What each thread did with the object before its Release() happens before the destructor.
    const std::int32_t left = m_references.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

bool zRefCount::AddRefIfAlive() {
    std::int32_t count = m_references.load(std::memory_order_relaxed);
    while (count > 0) {
        if (m_references.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}
