// loam/buffer.cpp - see the header for the contract.
#include "loam/buffer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

zBuffer::zBuffer(std::uint32_t size, std::uint32_t grow) : m_bytes(size, '\0'), m_grow(grow) {}

zBuffer::~zBuffer() = default;

char* zBuffer::Data() { return m_bytes.data(); }

const char* zBuffer::Data() const { return m_bytes.data(); }

std::uint32_t zBuffer::Length() const { return static_cast<std::uint32_t>(m_bytes.size()); }

std::uint32_t zBuffer::Capacity() const {
    constexpr std::size_t k_most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(m_bytes.capacity(), k_most));
}

zStatus zBuffer::ResizeTo(std::uint32_t size, std::uint32_t keep) {
    try {
        if (size > m_bytes.capacity()) {
            // At least half as much again, so that a buffer filled in small steps is not copied
            // once for each of them.
            const std::size_t step = std::max<std::size_t>(m_grow, m_bytes.capacity() / 2);
            m_bytes.reserve(std::max<std::size_t>(size, m_bytes.capacity() + step));
        }
        m_bytes.resize(std::min<std::size_t>({m_bytes.size(), keep, size}));
        m_bytes.resize(size, '\0');
    } catch (const std::bad_alloc&) {
        return -1;
    } catch (const std::length_error&) {
        return -1;
    }
    return 0;
}

zBufferStream::zBufferStream(zBuffer& buffer, std::uint32_t grow)
    : m_buffer(buffer), m_grow(grow), m_end(buffer.Length()) {}

zBufferStream::~zBufferStream() = default;

zStatus zBufferStream::Write(const char* bytes, std::uint32_t length, std::uint32_t* written) {
    if (written != nullptr) *written = 0;
    if (length == 0) return 0;
    constexpr std::uint64_t k_most = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t end = std::uint64_t{m_end} + length;
    if (bytes == nullptr || end > k_most) return -1;
    if (end > m_buffer.Length()) {
        const std::uint64_t stepped = std::min(std::uint64_t{m_end} + m_grow, k_most);
        const auto size = static_cast<std::uint32_t>(std::max(end, stepped));
        if (m_buffer.ResizeTo(size, m_end) != 0) return -1;
    }
    std::memcpy(m_buffer.Data() + m_end, bytes, length);
    m_end = static_cast<std::uint32_t>(end);
    if (written != nullptr) *written = length;
    return 0;
}

void zBufferStream::ResizeBufferToFit() { m_buffer.ResizeTo(m_end, m_end); }
