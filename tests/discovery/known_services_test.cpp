// known_services_test.cpp - which services are to be looked up, and in what order.
#include "discovery/known_services.h"

#include <gtest/gtest.h>

#include <string>

namespace pennywort::tests {
namespace {

using discovery::k_max_known_services;
using discovery::known_services;
using discovery::service_details;
using discovery::service_key;

service_key key_of(const std::string& name) { return {name, "_http._tcp.", "local."}; }

// All that are to be looked up, as "name/interface".
std::string all_of(known_services& known) {
    std::string all;
    while (const auto next = known.next()) {
        all +=
            (all.empty() ? "" : " ") + next->key.name + "/" + std::to_string(next->interface_index);
    }
    return all;
}

TEST(KnownServices, AreLookedUpOnceOnEachInterfaceAndTheSameOneLast) {
    known_services known;
    for (const std::uint32_t interface_index : {1u, 2u, 1u}) {
        known.add(key_of("a"), interface_index);
    }
    known.add(key_of("b"), 1);
    EXPECT_EQ(all_of(known), "a/1 b/1 a/2");
    EXPECT_FALSE(known.has_waiting());
    known.add(key_of("a"), 1);
    EXPECT_EQ(all_of(known), "a/1") << "it has come there anew";
}

TEST(KnownServices, ThatComeAndGoWaitOnceAndBehindTheOthers) {
    known_services known;
    service_details last;
    known.add(key_of("flapper"), 1);
    known.add(key_of("camera"), 1);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(known.remove(key_of("flapper"), last));
        known.add(key_of("flapper"), 1);
    }
    EXPECT_EQ(all_of(known), "camera/1 flapper/1");
}

TEST(KnownServices, ThatAreGoneOrToldOfDoNotWait) {
    known_services known;
    service_details last;
    known.add(key_of("gone"), 1);
    known.remove(key_of("gone"), last);
    EXPECT_FALSE(known.has_waiting());
    known.add(key_of("told"), 1);
    known.add(key_of("told"), 2);
    const auto next = known.next();
    EXPECT_EQ(next->interface_index, 1u);
    EXPECT_TRUE(known.tell(key_of("told"), next->stay, {"host", 1, {}}));
    EXPECT_FALSE(known.tell(key_of("told"), next->stay, {"host", 1, {}}));
    EXPECT_EQ(known.next(), std::nullopt);
    EXPECT_FALSE(known.has_waiting());
}

// It may have come back somewhere else.
TEST(KnownServices, ThatHaveGoneMeanwhileWantNoAnswerOfBefore) {
    known_services known;
    service_details last;
    known.add(key_of("camera"), 1);
    const auto before = known.next();
    EXPECT_TRUE(known.is_wanted(key_of("camera"), before->stay));
    known.remove(key_of("camera"), last);
    EXPECT_FALSE(known.is_wanted(key_of("camera"), before->stay));
    known.add(key_of("camera"), 1);
    EXPECT_FALSE(known.tell(key_of("camera"), before->stay, {"old", 1, {}}));
    const auto anew = known.next();
    ASSERT_TRUE(anew);
    EXPECT_TRUE(known.tell(key_of("camera"), anew->stay, {"new", 2, {}}));
    EXPECT_TRUE(known.remove(key_of("camera"), last));
    EXPECT_EQ(last.host, "new");
}

TEST(KnownServices, AreNoMoreThanFit) {
    known_services known;
    service_details last;
    for (std::size_t i = 0; i < k_max_known_services; ++i) {
        ASSERT_TRUE(known.add(key_of(std::to_string(i)), 1));
    }
    EXPECT_FALSE(known.add(key_of("one more"), 1));
    EXPECT_TRUE(known.add(key_of("0"), 2)) << "it is known already";
    known.remove(key_of("1"), last);
    EXPECT_TRUE(known.add(key_of("one more"), 1));
}

}  // namespace
}  // namespace pennywort::tests
