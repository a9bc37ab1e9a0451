// connections_test.cpp - many connections, and both families of addresses.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "loam/trace.h"
#include "tests/httpserver/descriptors.h"
#include "tests/httpserver/serving_test.h"
#include "tests/support/eventually.h"

namespace {

class ConnectionsTest : public ServingTest {
protected:
    ConnectionsTest() : ServingTest("/", room_for_many()) {}
};

TEST_F(ConnectionsTest, AThousandIdleOnesDoNotHinderOneThatWorks) {
    ASSERT_TRUE(make_room_for_descriptors(2200));
    std::vector<std::unique_ptr<test_client>> idle;
    for (int i = 0; i < 1000; ++i) {
        idle.push_back(std::make_unique<test_client>(port()));
        ASSERT_TRUE(idle.back()->is_connected()) << i;
    }
    test_client client(port());
    for (int i = 0; i < 100; ++i) {
        client.send(get_request("/"));
        ASSERT_EQ(client.receive_answer(), plain_answer("fine"));
    }
    EXPECT_EQ(counts().open, 1001);
    // Each of them was only waiting.
    for (const auto& one : idle) one->send(get_request("/idle"));
    for (const auto& one : idle) ASSERT_EQ(one->receive_answer(), plain_answer("fine"));
}

TEST_F(ConnectionsTest, TenThousandOpenedAndClosedLeaveNoDescriptor) {
    ASSERT_EQ(get(port(), "/"), plain_answer("fine"));
    wait_until_all_are_closed();
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 10000; ++i) {
        test_client client(port());
        ASSERT_TRUE(client.is_connected()) << i;
        // By a reset, so that the system need not remember each of them for a minute.
        client.reset();
    }
    EXPECT_EQ(get(port(), "/"), plain_answer("fine"));
    wait_until_all_are_closed();
    EXPECT_TRUE(pennywort::tests::eventually([&] { return open_descriptors() <= before; }))
        << open_descriptors() << " of " << before;
}

TEST_F(ConnectionsTest, ComeOverBothFamiliesOfAddresses) {
    test_client narrow(port(), "127.0.0.1");
    narrow.send(get_request("/4"));
    EXPECT_EQ(narrow.receive_answer(), plain_answer("fine"));
    test_client wide(port(), "::1");
    if (!wide.is_connected()) GTEST_SKIP() << "no IPv6 here";
    wide.send(get_request("/6"));
    EXPECT_EQ(wide.receive_answer(), plain_answer("fine"));
}

TEST_F(ConnectionsTest, AreAcceptedAgainOnceThereAreDescriptors) {
    ASSERT_EQ(get(port(), "/"), plain_answer("fine"));
    wait_until_all_are_closed();
    const auto told = std::make_shared<std::atomic<int>>(0);
    {
        const std::unique_ptr<zSocket> far(zSocket::Factory());
        ASSERT_EQ(far->Open(0), 0);
        // First, because a sanitizer needs descriptors where it meets a type for the first time.
        zTraceManager::Default()->SetSink([told](const char*) { ++*told; });
        const no_more_descriptors bound;
        if (!bound.is_available()) GTEST_SKIP() << "no such bound here";
        ASSERT_EQ(far->Connect("127.0.0.1", static_cast<std::uint16_t>(port()), 30000), 0);
        // Long enough for several attempts, of which one is told.
        while (*told == 0) zThread::MicroSleep(1000);
        zThread::MicroSleep(350'000);
        EXPECT_EQ(counts().open, 0);
    }
    EXPECT_EQ(get(port(), "/"), plain_answer("fine"));
    zTraceManager::Default()->SetSink({});
    EXPECT_EQ(*told, 1);
}

}  // namespace
