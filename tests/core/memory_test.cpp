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

}  // namespace
