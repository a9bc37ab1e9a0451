// loam/record_array.h - the lists inside a record: half as large as a vector, and able to begin in
// memory that lies behind their record.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace loam {

// A failed allocation leaves everything as it was.
template <typename type>
class record_array {
    static_assert(std::is_nothrow_move_constructible_v<type>);
    static_assert(std::is_nothrow_move_assignable_v<type>);

public:
    record_array() = default;
    record_array(const record_array& other) : record_array() {
        reserve(other.size());
        for (const type& each : other) emplace_back(each);
    }
    record_array& operator=(const record_array&) = delete;
    ~record_array() {
        clear();
        give_back();
    }

    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    type* begin() { return m_items; }
    type* end() { return m_items + m_size; }
    const type* begin() const { return m_items; }
    const type* end() const { return m_items + m_size; }
    type& operator[](std::size_t index) { return m_items[index]; }
    const type& operator[](std::size_t index) const { return m_items[index]; }
    type& back() { return m_items[m_size - 1]; }

    // Room for `count` in memory that is somebody else's and lasts as long as the list. Only for a
    // list that has no memory yet.
    void borrow(void* memory, std::size_t count) {
        m_items = static_cast<type*>(memory);
        m_room = room_of(count, true);
    }
    void reserve(std::size_t count) {
        if (count > capacity()) grow(count);
    }
    template <typename... made>
    void emplace_back(made&&... what) {
        if (m_size == capacity()) grow(m_size + std::size_t{1});
        std::construct_at(m_items + m_size, std::forward<made>(what)...);
        ++m_size;
    }
    void insert(std::size_t at, type item) {
        emplace_back(std::move(item));
        std::rotate(begin() + at, end() - 1, end());
    }
    void pop_back() { std::destroy_at(m_items + --m_size); }
    void erase(std::size_t at) {
        std::move(begin() + at + 1, end(), begin() + at);
        pop_back();
    }
    // The first that is equal, if there is one.
    void erase_value(const type& value) {
        const type* const found = std::find(begin(), end(), value);
        if (found != end()) erase(static_cast<std::size_t>(found - begin()));
    }
    void clear() {
        std::destroy(begin(), end());
        m_size = 0;
    }
    void swap(record_array& other) noexcept {
        std::swap(m_items, other.m_items);
        std::swap(m_size, other.m_size);
        std::swap(m_room, other.m_room);
    }

private:
    static std::uint32_t room_of(std::size_t count, bool is_borrowed) {
        return static_cast<std::uint32_t>(count) * 2 + (is_borrowed ? 1 : 0);
    }
    std::size_t capacity() const { return m_room / 2; }

    // At least doubled: records are filled one item at a time.
    void grow(std::size_t count) {
        const std::size_t room = std::max(count, 2 * capacity());
        if (room > k_most) throw std::bad_alloc();
        auto* const moved = static_cast<type*>(::operator new(room * sizeof(type)));
        std::uninitialized_move(begin(), end(), moved);
        std::destroy(begin(), end());
        give_back();
        m_items = moved;
        m_room = room_of(room, false);
    }
    void give_back() {
        if ((m_room & 1) == 0) ::operator delete(m_items);
    }

    static constexpr std::size_t k_most = std::numeric_limits<std::uint32_t>::max() / 2;

    type* m_items = nullptr;
    std::uint32_t m_size = 0;
    std::uint32_t m_room = 0;  // items that fit, and in the lowest bit whether that is borrowed
};

}  // namespace loam
