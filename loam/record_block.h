// loam/record_block.h - memory that many records share which are made together: a tree of a hundred
// thousand records takes and gives back a few hundred blocks instead.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "loam/record.h"

namespace loam {

// Gives out memory from its front to its back and takes none back; it goes when it has been closed
// and the last record in it has ended, on whatever thread.
class record_block {
public:
    // Throws when memory is out.
    static record_block* make(std::size_t bytes);

    // For one record; null where so many bytes are not left.
    void* take(std::size_t bytes);
    // Nothing is taken any more.
    void close();
    // One record in it has ended.
    void release(void* record);

    // What stands in front of each record: its block, or null for memory of its own.
    static record_block*& owner_of(void* record) { return static_cast<record_block**>(record)[-1]; }

private:
    explicit record_block(std::size_t bytes) : m_left(bytes) {}
    void count(std::int64_t change);

    // Up to close(), what has ended is counted below 0: what was taken is added then, at once.
    std::atomic<std::int64_t> m_records{0};
    std::int64_t m_taken = 0;
    std::size_t m_left;
    char* m_next = reinterpret_cast<char*>(this + 1);
};

// Makes the records of one tree.
class record_maker {
public:
    record_maker() = default;
    record_maker(const record_maker&) = delete;
    record_maker& operator=(const record_maker&) = delete;
    ~record_maker() { close(); }

    // Empty, with room for so many variables and children. Throws when memory is out.
    std::unique_ptr<zRecord> make(std::size_t variables, std::size_t children);

private:
    void* take(std::size_t bytes);
    void close();

    record_block* m_block = nullptr;
    std::size_t m_next_size = 1024;
};

}  // namespace loam
