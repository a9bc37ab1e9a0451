// elapsed_test.cpp - the trace of the time that a request took, which a variable of the
// environment switches on.
#include <gtest/gtest.h>

#include "httpclient.h"
#include "tests/httpclient/variable.h"
#include "tests/support/collected_traces.h"

namespace {

constexpr char k_variable[] = "TarnhelmTimeHTTP";

TEST(Elapsed, IsTracedWhereTheVariableIsSetAndNotEmpty) {
    const auto session = cHttpSession::Factory();
    session->Configure(cHttpSession::k_get, "http://host/", 1);
    const pennywort::tests::collected_traces traces;
    set_variable(k_variable, nullptr);
    session->LogElaspsedTime(2, 7);
    set_variable(k_variable, "");
    session->LogElaspsedTime(2, 7);
    EXPECT_EQ(traces.text(), "");
    set_variable(k_variable, "1");
    session->LogElaspsedTime(2, 7);
    session->LogElaspsedTime(7, 2);
    set_variable(k_variable, nullptr);
    EXPECT_EQ(traces.text(),
              "HTTP Elapsed Seconds 5 http://host/\nHTTP Elapsed Seconds -5 http://host/\n");
}

}  // namespace
