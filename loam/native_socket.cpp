// loam/native_socket.cpp - what is the same on every system; see the header for the contract.
#include "loam/native_socket.h"

#include <new>

namespace loam {

socket_wait::socket_wait(std::size_t most)
    : m_entries(most <= k_few ? m_few : new (std::nothrow) std::byte[most * k_entry_bytes]) {}

socket_wait::~socket_wait() {
    if (m_entries != m_few) delete[] m_entries;
}

}  // namespace loam
