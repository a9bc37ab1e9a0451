// loam/buffer.cpp - see the header for the contract.
#include "loam/buffer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "loam/buffer_access.h"

zBuffer::zBuffer(std::uint32_t size, std::uint32_t grow)
    : m_bytes(size == 0 ? nullptr : std::make_unique<char[]>(size)),
      m_length(size),
      m_capacity(size),
      m_grow(grow) {}

zBuffer::zBuffer(const zBuffer& other) : m_grow(other.m_grow) { *this = other; }

zBuffer& zBuffer::operator=(const zBuffer& other) {
    if (this == &other) return *this;
    if (other.m_length > m_capacity) {
        m_bytes = std::make_unique_for_overwrite<char[]>(other.m_length);
        m_capacity = other.m_length;
    }
    std::copy_n(other.m_bytes.get(), other.m_length, m_bytes.get());
    m_length = other.m_length;
    m_grow = other.m_grow;
    return *this;
}

zBuffer::~zBuffer() = default;

char* zBuffer::Data() { return m_bytes.get(); }

const char* zBuffer::Data() const { return m_bytes.get(); }

std::uint32_t zBuffer::Length() const { return static_cast<std::uint32_t>(m_length); }

std::uint32_t zBuffer::Capacity() const {
    constexpr std::size_t k_most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(m_capacity, k_most));
}

zStatus zBuffer::ResizeTo(std::uint32_t size, std::uint32_t keep) {
    const std::size_t kept = std::min<std::size_t>({m_length, keep, size});
    if (size > m_capacity) {
        // At least half as much again, so that a buffer filled in small steps is not copied
        // once for each of them.
        const std::size_t step = std::max<std::size_t>(m_grow, m_capacity / 2);
        const std::size_t capacity = std::max<std::size_t>(size, m_capacity + step);
        std::unique_ptr<char[]> moved(new (std::nothrow) char[capacity]);
        if (moved == nullptr) return -1;
        std::copy_n(m_bytes.get(), kept, moved.get());
        m_bytes = std::move(moved);
        m_capacity = capacity;
    }
    std::fill_n(m_bytes.get() + kept, size - kept, '\0');
    m_length = size;
    return 0;
}

void loam::buffer_access::give(zBuffer& buffer, std::unique_ptr<char[]> bytes, std::size_t length,
                               std::size_t capacity) {
    buffer.m_bytes = std::move(bytes);
    buffer.m_length = length;
    buffer.m_capacity = capacity;
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
