// loam/heap.h - zHeap, a growable array of small values such as pointers.
//
// Threads: not locked; any number of threads may read one heap that nobody changes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

// The elements keep their order. What pointers in it point to is not owned. `T` is copied without
// failing; nothing throws but the allocation of memory.
template <typename T>
class zHeap {
public:
    zHeap() = default;
    zHeap(const zHeap& other) { assign(other); }
    zHeap(zHeap&& other) noexcept { swap(other); }
    zHeap& operator=(const zHeap& other) {
        if (this != &other) assign(other);
        return *this;
    }
    zHeap& operator=(zHeap&& other) noexcept {
        swap(other);
        return *this;
    }
    ~zHeap() { delete[] m_elements; }

    std::int32_t Count() const { return m_count; }
    // Elements that fit without another allocation.
    std::int32_t Capacity() const { return m_capacity; }
    // Null or anything when the count is 0; valid until an element is added.
    T* Elements() { return m_elements; }
    const T* Elements() const { return m_elements; }
    // `index` must be in range.
    T& operator[](std::int32_t index) { return m_elements[index]; }
    const T& operator[](std::int32_t index) const { return m_elements[index]; }

    void Add(T element) {
        if (m_count == m_capacity) make_room(m_capacity < k_first ? k_first : m_capacity * 2);
        m_elements[m_count++] = element;
    }
    // The elements behind it move up; the memory stays. An index out of range is ignored.
    void RemoveAt(std::int32_t index) {
        if (index < 0 || index >= m_count) return;
        std::copy(m_elements + index + 1, m_elements + m_count, m_elements + index);
        --m_count;
    }
    void MakeEmpty() { m_count = 0; }

private:
    static constexpr std::int32_t k_first = 8;

    void make_room(std::int32_t capacity) {
        T* larger = new T[static_cast<std::size_t>(capacity)];
        std::copy(m_elements, m_elements + m_count, larger);
        delete[] std::exchange(m_elements, larger);
        m_capacity = capacity;
    }

    void assign(const zHeap& other) {
        m_count = 0;
        if (other.m_count > m_capacity) make_room(other.m_count);
        std::copy(other.m_elements, other.m_elements + other.m_count, m_elements);
        m_count = other.m_count;
    }

    void swap(zHeap& other) noexcept {
        std::swap(m_count, other.m_count);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_elements, other.m_elements);
    }

    std::int32_t m_count = 0;
    std::int32_t m_capacity = 0;
    T* m_elements = nullptr;
};
