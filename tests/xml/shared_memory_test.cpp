// shared_memory_test.cpp - records that came out of one document share blocks of memory; each may
// be taken out, changed and ended by itself.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/failing_memory.h"
#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;

// More than fit into one block, so that some children lie in another block than their parents.
std::string many_elements(int count) {
    std::string text = "<r>";
    for (int i = 0; i < count; ++i) {
        text += "<e n='" + std::to_string(i) + "'><a>" + std::string(i % 40, 'x') + "</a><b/></e>";
    }
    return text + "</r>";
}

std::string shape_of_element(int i) {
    const std::string text(i % 40, 'x');
    return "e{n=" + std::to_string(i) + "}(a" + (text.empty() ? "" : "'" + text + "'") + " b)";
}

TEST(SharedMemory, WhatIsTakenOutOutlivesTheRest) {
    std::vector<std::unique_ptr<zRecord>> taken;
    {
        zRecord record;
        ASSERT_EQ(parse_text(record, many_elements(3000)), 0);
        for (int i = 2000; i >= 0; i -= 500) taken.emplace_back(record.TakeChild(i));
        EXPECT_EQ(record.ChildCount(), 2995u);
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        EXPECT_EQ(xml_shape(*taken[i]), shape_of_element(2000 - 500 * static_cast<int>(i)));
        EXPECT_EQ(taken[i]->Parent(), nullptr);
    }
}

TEST(SharedMemory, RecordsOfOneTreeEndOnSeveralThreads) {
    zRecord record;
    ASSERT_EQ(parse_text(record, many_elements(2000)), 0);
    const std::size_t before = memory_in_use();
    std::vector<std::vector<std::unique_ptr<zRecord>>> shares(4);
    for (std::size_t i = 0; record.ChildCount() > 0; ++i) {
        shares[i % shares.size()].emplace_back(record.TakeChild(record.ChildCount() - 1));
    }
    std::vector<std::thread> threads;
    for (auto& share : shares) threads.emplace_back([&share] { share.clear(); });
    for (std::thread& each : threads) each.join();
    EXPECT_LT(memory_in_use(), before);
    EXPECT_EQ(xml_shape(record), "r");
}

TEST(SharedMemory, RecordsGrowBeyondTheirPlace) {
    zRecord record;
    ASSERT_EQ(parse_text(record, "<r><a x='1'><b/></a><c>text</c></r>"), 0);
    zRecord& grown = *record.Child(0);
    for (int i = 0; i < 40; ++i) {
        grown.SetInt32(("n" + std::to_string(i)).c_str(), i);
        ASSERT_EQ(grown.AddChild(new zRecord, i % 2), 0);
    }
    EXPECT_EQ(grown.VariableCount(), 42u);
    EXPECT_EQ(grown.ChildCount(), 41u);
    EXPECT_EQ(grown.AsInt32("n39", -1), 39);
    EXPECT_EQ(grown.AsString("x", ""), "1");
    EXPECT_TRUE(grown.Remove("x"));
    EXPECT_EQ(grown.AsInt32("n39", -1), 39);
    grown.MakeEmpty();
    EXPECT_TRUE(grown.SetCString("again", "1"));
    EXPECT_EQ(grown.VariableCount(), 1u);
    EXPECT_EQ(xml_shape(*record.Child(1)), "c'text'");
}

TEST(SharedMemory, RecordsAreCopiedIntoEachOther) {
    zRecord record;
    ASSERT_EQ(parse_text(record, "<r><a x='1'><b>t</b></a><c>text</c></r>"), 0);
    *record.Child(1) = *record.Child(0);
    EXPECT_EQ(xml_shape(record), "r(a{x=1}(b't') a{x=1}(b't'))");
    *record.Child(0) = *record.Child(0)->Child(0);
    EXPECT_EQ(xml_shape(record), "r(b't' a{x=1}(b't'))");
    const zRecord copy(*record.Child(1));
    record = copy;
    EXPECT_EQ(xml_shape(record), "a{x=1}(b't')");
}

TEST(SharedMemory, IsGivenBackWithTheLastOfItsRecords) {
    const std::string text = many_elements(500);
    zRecord warm;
    parse_text(warm, text);
    warm.MakeEmpty();
    const std::size_t before = memory_in_use();
    {
        zRecord record;
        ASSERT_EQ(parse_text(record, text), 0);
        const std::unique_ptr<zRecord> last(record.TakeChild(499));
        record.MakeEmpty();
        EXPECT_GT(memory_in_use(), before);
        EXPECT_LT(memory_in_use(), before + 100'000);
    }
    EXPECT_EQ(memory_in_use(), before);
}

}  // namespace
