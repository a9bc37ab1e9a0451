// loam/record_block.cpp - see the header for the contract.
#include "loam/record_block.h"

#ifdef LOAM_MARKS_ENDED_RECORDS
#include <sanitizer/asan_interface.h>
#endif

#include <algorithm>
#include <new>

#include "loam/record_state.h"

namespace loam {
namespace {

// A block is kept by any of its records, and so is not large.
constexpr std::size_t k_largest_block = 64 * 1024;
// More children or variables than this have memory of their own.
constexpr std::size_t k_most_items = 64;
constexpr std::size_t k_pointer = sizeof(void*);

}  // namespace

record_block* record_block::make(std::size_t bytes) {
    return new (::operator new(sizeof(record_block) + bytes)) record_block(bytes);
}

void* record_block::take(std::size_t bytes) {
    const std::size_t all = k_pointer + bytes;
    if (all > m_left) return nullptr;
    void* const record = m_next + k_pointer;
    m_next += all;
    m_left -= all;
    ++m_taken;
    owner_of(record) = this;
    return record;
}

void record_block::close() { count(m_taken); }

// The memory of one that has ended lives on with its neighbours: without the mark no sanitizer
// would see who still uses it.
void record_block::release(void* record) {
#ifdef LOAM_MARKS_ENDED_RECORDS
    __asan_poison_memory_region(record, sizeof(zRecord));
#else
    static_cast<void>(record);
#endif
    count(-1);
}

void record_block::count(std::int64_t change) {
    if (m_records.fetch_add(change, std::memory_order_acq_rel) + change != 0) return;
    std::destroy_at(this);
    ::operator delete(this);
}

void* record_maker::take(std::size_t bytes) {
    void* place = m_block == nullptr ? nullptr : m_block->take(bytes);
    if (place != nullptr) return place;
    record_block* const next = record_block::make(std::max(m_next_size, bytes + k_pointer));
    close();
    m_block = next;
    m_next_size = std::min(2 * m_next_size, k_largest_block);
    return m_block->take(bytes);
}

void record_maker::close() {
    if (m_block != nullptr) m_block->close();
    m_block = nullptr;
}

std::unique_ptr<zRecord> record_maker::make(std::size_t variables, std::size_t children) {
    const bool is_small = variables <= k_most_items && children <= k_most_items;
    const std::size_t of_variables = is_small ? variables * sizeof(record_variable) : 0;
    const std::size_t of_children = is_small ? children * k_pointer : 0;
    char* const place = static_cast<char*>(take(sizeof(zRecord) + of_variables + of_children));
    std::unique_ptr<zRecord> record(::new (place) zRecord);
    record_state& state = record_access::state_of(*record);
    if (is_small) {
        state.variables.borrow(place + sizeof(zRecord), variables);
        state.children.borrow(place + sizeof(zRecord) + of_variables, children);
    }
    state.variables.reserve(variables);
    state.children.reserve(children);
    return record;
}

}  // namespace loam
