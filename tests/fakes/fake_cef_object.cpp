// fake_cef_object.cpp - see the header.
#include "tests/fakes/fake_cef_object.h"

#include <cstdio>
#include <cstdlib>

namespace fake {

namespace {

constexpr std::size_t k_most_graves = 4096;

void lacking() {
    std::fputs("fake_cef: an operation was called that the fake does not have\n", stderr);
    std::abort();
}

}  // namespace

graveyard& graveyard::ground() {
    static graveyard& the_ground = *new graveyard;
    return the_ground;
}

void graveyard::bury(std::function<void()> free_it) {
    std::function<void()> oldest;
    {
        const std::lock_guard lock(m_lock);
        m_graves.push_back(std::move(free_it));
        if (m_graves.size() <= k_most_graves) return;
        oldest = std::move(m_graves.front());
        m_graves.pop_front();
    }
    oldest();
}

void fill_lacking(void* first_operation, std::size_t bytes) {
    void (*const operation)() = &lacking;
    auto* at = static_cast<unsigned char*>(first_operation);
    for (std::size_t i = 0; i + sizeof operation <= bytes; i += sizeof operation) {
        std::memcpy(at + i, &operation, sizeof operation);
    }
}

}  // namespace fake
