// missing_test.cpp - a machine without DNS-SD: everything fails, and nothing else happens. This
// program is linked to no DNS-SD library, and finds none.
#include <gtest/gtest.h>

#include "bonjour.h"
#include "loam/library.h"
#include "tests/discovery/absent_library.h"

namespace {

TEST(WithoutDNSSD, EveryOperationFails) {
    const absent_library absent;
    cBonjour bonjour;
    EXPECT_EQ(bonjour.Service_Register("_http._tcp.", 80, nullptr), -1);
    EXPECT_EQ(bonjour.Service_Advertise("name", "_http._tcp.", 80, nullptr, 0), -1);
    EXPECT_EQ(bonjour.Service_Unregister("_http._tcp.", 80), -1);
    EXPECT_EQ(bonjour.StartObserving(1, "_http._tcp.", 0), -1);
    EXPECT_EQ(bonjour.StartObservingOnce(1, "_http._tcp.", 0), -1);
    bonjour.StopObserving(1);
}

TEST(WithoutDNSSD, TheLibraryReturnsItsError) {
    const absent_library absent;
    cBonjourLib lib;
    EXPECT_FALSE(lib.Exists());
    EXPECT_EQ(lib.DNSServiceRefSockFD(nullptr), -65537);
    EXPECT_EQ(lib.DNSServiceProcessResult(nullptr), -65537);
}

TEST(WithoutDNSSD, TheSystemIsAskedOnce) {
    {
        const absent_library absent;
        EXPECT_FALSE(cBonjour::SystemHasBonjour());
    }
    const std::unique_ptr<zLibrary> there(zLibrary::Factory());
    ASSERT_EQ(there->Load(FAKE_DNSSD_FOLDER "/0/" FAKE_DNSSD_FILE), 0) << there->Error();
    EXPECT_TRUE(cBonjourLib().Exists());
    EXPECT_FALSE(cBonjour::SystemHasBonjour());
}

}  // namespace
