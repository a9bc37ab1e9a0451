// memory_test.cpp - header parsing whose memory runs out at any moment.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tests/support/failing_memory.h"
#include "utils.h"

namespace {

// More variables than a record holds without an index, one of them twice, and values that do not
// fit into a string itself.
std::string long_block() {
    std::string block;
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i % 19);
        block += "X-Header-Number-" + number + ": " + std::string(40, 'v') + number + "\r\n";
    }
    return block;
}

// What is there after a failure is whole, and only one header may be missing.
TEST(Memory, RunsOutAtAnyPlaceOfHeaderParse) {
    const std::string block = long_block();
    const auto length = static_cast<std::int32_t>(block.size());
    std::optional<zRecord> headers;
    std::int32_t used = 0;
    headers.emplace();
    const int failures = with_each_allocation_failing(
        [&] { used = cUtils::HeaderParse(block.data(), length, *headers); },
        [&] {
            EXPECT_EQ(used, length);
            EXPECT_GE(headers->VariableCount(), 18u);
            for (std::uint32_t i = 0; i < headers->VariableCount(); ++i) {
                const std::string name = headers->VariableName(i);
                const std::string number = name.substr(name.rfind('-') + 1);
                EXPECT_EQ(headers->AsString(name.c_str(), ""), std::string(40, 'v') + number);
            }
            headers.emplace();
        });
    EXPECT_GT(failures, 20);
}

TEST(Memory, IsNotAskedForByEntriesAndSearches) {
    const std::string text = std::string(9000, 'x') + "--boundary";
    const cBoyerMoore searcher("--boundary", 10);
    const cBoyerMoore strided(text.data() + 8000, 255);
    const char* value = nullptr;
    std::int32_t length = 0;
    fail_memory_after(0);
    const std::int32_t found = searcher.FindIn(text.data(), static_cast<std::int32_t>(text.size()));
    const std::int32_t first = strided.FindIn(text.data(), static_cast<std::int32_t>(text.size()));
    const zStatus status = cUtils::HeaderEntry_FindByName("multipart/related; boundary=abc",
                                                          "boundary", &value, &length);
    EXPECT_FALSE(stop_failing_memory());
    EXPECT_EQ(found, 9000);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
