// other_bytes_test_linux.cpp - texts that are not UTF-8, which would end the process inside Avahi's
// library. On Windows other_bytes_test_win.cpp stands in.
#include "tests/discovery/fake_network.h"

namespace pennywort::tests {
namespace {

class OtherBytes : public FakeNetwork {};

TEST_F(OtherBytes, AreRefused) {
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register("_\xFF._tcp.", 1, nullptr), -1);
    EXPECT_EQ(bonjour.Service_Advertise("caf\xE9", k_http, 1, nullptr, 0), -1);
    EXPECT_EQ(bonjour.StartObserving(1, "_\xC3._tcp.", 0), -1);
    EXPECT_EQ(bonjour.StartObservingOnce(1, "_\xC3._tcp.", 0), -1);
    EXPECT_STREQ(fake_dnssd::calls(), "");
}

TEST_F(OtherBytes, AreNotLookedUp) {
    cBonjour bonjour;
    listener ears;
    ASSERT_EQ(bonjour.StartObserving(ears.id(), k_http, 0), 0);
    ASSERT_EQ(bonjour.StartObservingOnce(ears.id(), k_http, 0), 0);
    fake_dnssd::tell(k_http, {2, 1, 0, "caf\xE9", k_http, "local."});
    fake_dnssd::tell(k_http, {2, 1, 0, "Camera", "\xFF", "local."});
    fake_dnssd::tell(k_http, {2, 1, 0, "Camera", k_http, "\xFF"});
    run_loop();
    EXPECT_EQ(count_of("Resolve"), 0);
    EXPECT_EQ(count_of("ProcessResult"), 6);
}

}  // namespace
}  // namespace pennywort::tests
