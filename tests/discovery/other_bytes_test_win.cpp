// other_bytes_test_win.cpp - texts that are not UTF-8 are the affair of the system's library.
// Avahi's cannot take them: other_bytes_test_linux.cpp.
#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class OtherBytes : public FakeNetwork {};

TEST_F(OtherBytes, ArePassedOn) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register("_\xFF._tcp.", 1, nullptr), 0);
    EXPECT_EQ(bonjour.StartObserving(1, "_\xC3._tcp.", 0), 0);
    EXPECT_EQ(count_of("type=_\xFF._tcp."), 1);
    EXPECT_EQ(count_of("type=_\xC3._tcp."), 1);
}

TEST_F(OtherBytes, AreLookedUp) {
    cBonjour bonjour;
    listener ears;
    ASSERT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0);
    fake_dnssd::tell(k_http, {2, 1, 0, "caf\xE9", k_http, "local."});
    run_loop();
    EXPECT_EQ(count_of("Resolve"), 1);
}

}  // namespace
}  // namespace pennywort::tests
