// loam/xml_memory.cpp - see the header for the contract.
#include "loam/xml_memory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace loam {
namespace {

// In front of each block, so that its size is known when it grows.
constexpr std::size_t k_front = alignof(std::max_align_t);
static_assert(k_front >= sizeof(std::size_t));

void* take(std::size_t size) {
    if (size > std::numeric_limits<std::size_t>::max() - k_front) return nullptr;
    auto* const block = static_cast<char*>(::operator new(k_front + size, std::nothrow));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &size, sizeof size);
    return block + k_front;
}

void give_back(void* memory) {
    if (memory != nullptr) ::operator delete(static_cast<char*>(memory) - k_front);
}

void* resize(void* memory, std::size_t size) {
    if (memory == nullptr) return take(size);
    std::size_t before = 0;
    std::memcpy(&before, static_cast<char*>(memory) - k_front, sizeof before);
    void* const moved = take(size);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, memory, std::min(before, size));
    give_back(memory);
    return moved;
}

}  // namespace

const XML_Memory_Handling_Suite& xml_memory() {
    static const XML_Memory_Handling_Suite s_suite{take, resize, give_back};
    return s_suite;
}

}  // namespace loam
