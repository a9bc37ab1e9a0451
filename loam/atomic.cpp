// loam/atomic.cpp - see the header for the contract.
#include "loam/atomic.h"

zAtomic::zAtomic(std::int32_t value) : m_value(value) {}

std::int32_t zAtomic::CompareAndSet(std::int32_t expected, std::int32_t desired) {
    m_value.compare_exchange_strong(expected, desired);
    return expected;
}

std::int32_t zAtomic::Get() const { return m_value.load(); }

void zAtomic::Set(std::int32_t value) { m_value.store(value); }

// The sum is formed without a sign, where to wrap is defined.
std::int32_t zAtomic::Increment() {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(m_value.fetch_add(1)) + 1u);
}

std::int32_t zAtomic::Decrement() {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(m_value.fetch_sub(1)) - 1u);
}
