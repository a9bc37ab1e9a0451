// serving_test.h - the base of tests with one server and one handler that answers "fine".
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"
#include "tests/support/eventually.h"

// Connections that were reset wait to be accepted as well, so a test of many wants room for them.
inline cHttpServerSettings room_for_many() {
    cHttpServerSettings wanted;
    wanted.backlog = 1024;
    return wanted;
}

class ServingTest : public testing::Test {
protected:
    static constexpr std::int32_t k_buffer = 4096;

    explicit ServingTest(const std::string& prefix,
                         const cHttpServerSettings& settings = cHttpServerSettings())
        : m_handler(make<test_handler>(prefix)), m_server(0, k_buffer, settings) {
        m_server.InstallHandler(*m_handler);
    }

    void install(cHttpHandler& handler) { m_server.InstallHandler(handler); }
    std::int32_t port() { return m_server.ListenPort(); }

    cHttpServerCounts counts() const {
        cHttpServerCounts now;
        m_server.GetCounts(now);
        return now;
    }

    // Whoever was served badly, the next one is served well.
    void expect_serving() { EXPECT_EQ(get(port(), "/after"), plain_answer("fine")); }

    void wait_until_open(std::int64_t count) const {
        ASSERT_TRUE(pennywort::tests::eventually([&] { return counts().open == count; }))
            << counts().open;
    }
    void wait_until_all_are_closed() const { wait_until_open(0); }

    held<test_handler> m_handler;
    cHttpServer m_server;
};
