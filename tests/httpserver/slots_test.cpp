// slots_test.cpp - the order of virtual operations. Hosts that were built with an earlier library
// call them by their place.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "httpserver.h"

namespace {

// In the ABI of GCC a pointer to a virtual operation holds 1 more than its place in bytes.
template <typename operation>
std::size_t slot_of(operation pointer) {
    std::uintptr_t parts[2] = {};
    static_assert(sizeof pointer == sizeof parts);
    std::memcpy(parts, &pointer, sizeof parts);
    return (parts[0] - 1) / sizeof(void*);
}

// The destructor comes first and takes two.
constexpr std::size_t k_first = 2;

TEST(Slots, OfAHandler) {
    EXPECT_EQ(slot_of(&cHttpHandler::Handle), k_first);
    EXPECT_EQ(slot_of(&cHttpHandler::CanHandle), k_first + 1);
}

TEST(Slots, OfAServer) { EXPECT_EQ(slot_of(&cHttpServer::Main), k_first); }

TEST(Slots, OfASocket) {
    EXPECT_EQ(slot_of(&zSocket::Open), k_first);
    EXPECT_EQ(slot_of(&zSocket::Listen), k_first + 1);
    EXPECT_EQ(slot_of(&zSocket::Accept), k_first + 2);
    EXPECT_EQ(slot_of(&zSocket::Receive), k_first + 3);
    EXPECT_EQ(slot_of(&zSocket::Send), k_first + 4);
}

}  // namespace
