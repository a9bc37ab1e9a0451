// page_calls_test.cpp - when a page is told of its calls that the host is done with.
#include "webdisplay/page_calls.h"

#include <gtest/gtest.h>

#include <string>

#include "core/limits.h"

namespace pennywort::webdisplay {
namespace {

TEST(PageCallsTest, AreToldInBundles) {
    page_calls calls;
    for (std::uint32_t i = 1; i < k_calls_handled_untold; ++i) EXPECT_EQ(calls.handled("a"), 0u);
    EXPECT_EQ(calls.handled("b"), 0u);
    EXPECT_EQ(calls.handled("a"), k_calls_handled_untold);
    EXPECT_EQ(calls.handled("a"), 0u);
}

TEST(PageCallsTest, OfMoreFramesThanAreRememberedEachIsTold) {
    page_calls calls;
    for (std::size_t i = 0; i < k_max_calling_frames; ++i) {
        EXPECT_EQ(calls.handled(std::to_string(i)), 0u);
    }
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(calls.handled("x" + std::to_string(i)), 1u);
}

}  // namespace
}  // namespace pennywort::webdisplay
