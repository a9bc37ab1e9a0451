// slots_test.cpp - the order of virtual operations. Hosts that were built with an earlier library
// call them by their place.
#include <gtest/gtest.h>

#include <cstddef>

#include "httpserver.h"
#include "tests/support/slot_of.h"

namespace {

using pennywort::tests::slot_of;

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
