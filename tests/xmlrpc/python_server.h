// python_server.h - tests that call a server of Python's own library. PYTHON_SERVER is its file.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/xmlrpc/peer_process.h"

namespace pennywort::tests {

// One server for all tests of a suite.
class PythonServerTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_server =
            std::make_unique<peer_process>(std::vector<std::string>{"python3", PYTHON_SERVER});
        s_url = "http://127.0.0.1:" + s_server->line() + "/RPC2";
    }
    static void TearDownTestSuite() { s_server.reset(); }

    static inline std::unique_ptr<peer_process> s_server;
    static inline std::string s_url;
};

}  // namespace pennywort::tests
