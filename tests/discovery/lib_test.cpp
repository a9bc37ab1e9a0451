// lib_test.cpp - cBonjourLib: all seven functions of the system's library, or none. This program is
// linked to no DNS-SD library; each test loads one by its path first, and that one then has the
// name that is asked for.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "bonjour.h"
#include "loam/library.h"

namespace {

// Loaded as long as it lives.
class loaded_library {
public:
    explicit loaded_library(int lacks) : m_library(zLibrary::Factory()) {
        const std::string path =
            std::string(FAKE_DNSSD_FOLDER "/") + std::to_string(lacks) + "/" FAKE_DNSSD_FILE;
        EXPECT_EQ(m_library->Load(path.c_str()), 0) << m_library->Error();
    }

private:
    std::unique_ptr<zLibrary> m_library;
};

struct answers {
    int enrol, browse, resolve, process, socket, item;
    bool operator==(const answers&) const = default;
};
void PrintTo(const answers& all, std::ostream* out) {
    *out << all.enrol << ' ' << all.browse << ' ' << all.resolve << ' ' << all.process << ' '
         << all.socket << ' ' << all.item;
}

answers call_all(cBonjourLib& lib) {
    lib.DNSServiceRefDeallocate(nullptr);
    return {lib.DNSServiceRegister(nullptr, 0, 0, "", "", "", "", 0, 0, "", nullptr, nullptr),
            lib.DNSServiceBrowse(nullptr, 0, 0, "", "", nullptr, nullptr),
            lib.DNSServiceResolve(nullptr, 0, 0, "", "", "", nullptr, nullptr),
            lib.DNSServiceProcessResult(nullptr),
            lib.DNSServiceRefSockFD(nullptr),
            lib.TXTRecordGetItemAtIndex(0, nullptr, 0, 0, nullptr, nullptr, nullptr)};
}

constexpr answers k_none{-65537, -65537, -65537, -65537, -65537, -65537};

TEST(BonjourLib, HasAllSeven) {
    const loaded_library whole(0);
    cBonjourLib lib;
    EXPECT_TRUE(lib.Exists());
    EXPECT_EQ(call_all(lib), (answers{6, 4, 5, 2, 3, 7}));
}

class BonjourLibLacks : public testing::TestWithParam<int> {};

TEST_P(BonjourLibLacks, OneAndHasNone) {
    const loaded_library partial(GetParam());
    cBonjourLib lib;
    EXPECT_FALSE(lib.Exists());
    EXPECT_EQ(call_all(lib), k_none);
}

INSTANTIATE_TEST_SUITE_P(Each, BonjourLibLacks, testing::Range(1, 8));

// One that stayed would be found by its name in place of the next.
TEST(BonjourLib, IsUnloadedAtOnceWhereItIsNotWholeAndElseWithItsObject) {
    {
        const loaded_library partial(7);
        const cBonjourLib lib;
        EXPECT_FALSE(lib.Exists());
    }
    {
        const loaded_library whole(0);
        EXPECT_TRUE(cBonjourLib().Exists());
    }
    const loaded_library partial(7);
    EXPECT_FALSE(cBonjourLib().Exists());
}

TEST(BonjourLib, KeepsNothingOfALibraryThatIsNotWhole) {
    auto partial = std::make_unique<loaded_library>(7);
    cBonjourLib lib;
    partial.reset();
    const loaded_library whole(0);
    EXPECT_TRUE(cBonjourLib().Exists());
    EXPECT_FALSE(lib.Exists());
}

}  // namespace
