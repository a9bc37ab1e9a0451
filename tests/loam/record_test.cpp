// record_test.cpp - zRecord and zRecordIterator.
#include "loam/record.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::uint64_t k_number = 0x77686174;

TEST(Record, MissingVariablesReadAsTheDefault) {
    const zRecord record;
    char scratch[64];
    EXPECT_TRUE(record.AsBool("x", true));
    EXPECT_EQ(record.AsInt32("x", -3), -3);
    EXPECT_EQ(record.AsInt64(k_number, 1LL << 40), 1LL << 40);
    EXPECT_EQ(record.AsString("x", "none"), "none");
    EXPECT_STREQ(record.AsCString("x", "none", &scratch), "none");
    EXPECT_EQ(record.AsCString("x", nullptr, &scratch), nullptr);
    EXPECT_FALSE(record.Has("x"));
}

TEST(Record, NullNamesAreRefusedAndChangeNothing) {
    zRecord record;
    const char* none = nullptr;
    EXPECT_FALSE(record.SetInt32(none, 1, 0));
    EXPECT_FALSE(record.SetCString(none, "x", 0));
    EXPECT_FALSE(record.Remove(none));
    EXPECT_EQ(record.AsInt32(none, 5), 5);
    EXPECT_EQ(record.VariableCount(), 0u);
}

TEST(Record, NamesAndIdentifiersNeverMeet) {
    zRecord record;
    record.SetInt32("what", 1, 0);
    record.SetInt32(k_number, 2, 0);
    EXPECT_EQ(record.VariableCount(), 2u);
    EXPECT_EQ(record.AsInt32("what", 0), 1);
    EXPECT_EQ(record.AsInt32(k_number, 0), 2);
    EXPECT_STREQ(record.VariableName(1), "");
    EXPECT_EQ(record.VariableID(0), 0u);
    EXPECT_EQ(record.VariableID(1), k_number);
}

TEST(Record, ReplacingKeepsThePlaceAndMayChangeTheType) {
    zRecord record;
    record.SetCString("a", "1", 0);
    record.SetCString("b", "2", 0);
    record.SetInt32("a", 7, 0);
    ASSERT_EQ(record.VariableCount(), 2u);
    EXPECT_STREQ(record.VariableName(0), "a");
    EXPECT_EQ(record.AsInt32("a", 0), 7);
    EXPECT_STREQ(record.VariableName(2), "");
}

// Past a dozen variables an index takes over, and every operation must agree with it.
class ManyVariablesTest : public testing::TestWithParam<int> {};

TEST_P(ManyVariablesTest, FindsReplacesAndRemovesEachOfThem) {
    const int count = GetParam();
    zRecord record;
    for (int i = 0; i < count; ++i) record.SetInt32(("n" + std::to_string(i)).c_str(), i, 0);
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(record.AsInt32(("n" + std::to_string(i)).c_str(), -1), i);
        EXPECT_EQ(record.VariableName(static_cast<std::uint32_t>(i)), "n" + std::to_string(i));
    }
    for (int i = 0; i < count; i += 2)
        EXPECT_TRUE(record.Remove(("n" + std::to_string(i)).c_str()));
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(record.AsInt32(("n" + std::to_string(i)).c_str(), -1), i % 2 ? i : -1);
    }
    record.SetCString("n0", "again", 0);
    EXPECT_EQ(record.AsString("n0", {}), "again");
    const zRecord copy(record);
    EXPECT_EQ(copy.AsString("n0", {}), "again");
    EXPECT_EQ(copy.VariableCount(), record.VariableCount());
    record.MakeEmpty();
    EXPECT_FALSE(record.Has("n1"));
    EXPECT_EQ(copy.Has("n1"), count > 1);
}

INSTANTIATE_TEST_SUITE_P(Around, ManyVariablesTest, testing::Values(1, 11, 12, 13, 14, 1000));

TEST(Record, TextKeepsItsLengthAndItsNuls) {
    zRecord record;
    EXPECT_TRUE(record.SetText("t", "a\0b", 3, 0));
    EXPECT_EQ(record.AsString("t", {}), std::string("a\0b", 3));
    std::uint32_t length = 0;
    EXPECT_EQ(std::memcmp(record.AsText("t", &length), "a\0b", 3), 0);
    EXPECT_EQ(length, 3u);
    EXPECT_TRUE(record.SetText("t", nullptr, 9, 0));
    EXPECT_EQ(record.AsString("t", "default"), "");
    EXPECT_TRUE(record.SetCString("t", nullptr, 0));
    EXPECT_EQ(record.AsString("t", "default"), "");
}

TEST(Record, NumbersAndTextsConvertWhereTheyFit) {
    zRecord record;
    record.SetCString("n", "12", 0);
    record.SetCString("big", "4294967296", 0);
    record.SetCString("words", "12px", 0);
    record.SetInt64("wide", 1LL << 40, 0);
    record.SetDouble("d", -2.9, 0);
    record.SetDouble("nan", std::numeric_limits<double>::quiet_NaN(), 0);
    record.SetBool("yes", true, 0);
    EXPECT_EQ(record.AsInt32("n", 0), 12);
    EXPECT_EQ(record.AsInt32("big", -1), -1);
    EXPECT_EQ(record.AsInt64("big", -1), 4294967296LL);
    EXPECT_EQ(record.AsInt32("words", -1), -1);
    EXPECT_EQ(record.AsInt32("wide", -1), -1);
    EXPECT_EQ(record.AsInt32("d", 0), -2);
    EXPECT_EQ(record.AsInt32("nan", -1), -1);
    EXPECT_EQ(record.AsInt32("yes", 0), 1);
    EXPECT_EQ(record.AsString("yes", {}), "true");
    EXPECT_EQ(record.AsString("wide", {}), "1099511627776");
}

TEST(Record, BoolsAreReadFromWordsAndNumbers) {
    zRecord record;
    record.SetCString("t", "TRUE", 0);
    record.SetCString("f", "false", 0);
    record.SetCString("one", "1", 0);
    record.SetCString("odd", "maybe", 0);
    record.SetInt32("n", -4, 0);
    EXPECT_TRUE(record.AsBool("t", false));
    EXPECT_FALSE(record.AsBool("f", true));
    EXPECT_TRUE(record.AsBool("one", false));
    EXPECT_TRUE(record.AsBool("odd", true));
    EXPECT_FALSE(record.AsBool("odd", false));
    EXPECT_TRUE(record.AsBool("n", false));
}

TEST(Record, NumbersAreWrittenIntoTheCallersScratch) {
    zRecord record;
    char scratch[64];
    record.SetInt32("n", std::numeric_limits<std::int32_t>::min(), 0);
    record.SetCString("t", "in place", 0);
    EXPECT_EQ(record.AsCString("n", "", &scratch), scratch);
    EXPECT_STREQ(scratch, "-2147483648");
    EXPECT_STREQ(record.AsCString("n", "none", nullptr), "none");
    EXPECT_STREQ(record.AsCString("t", "", nullptr), "in place");
}

TEST(Record, BytesConvertToNothingButThemselves) {
    zRecord record;
    record.SetBytes("b", "12", 2, 0);
    std::uint32_t length = 9;
    EXPECT_EQ(record.AsInt32("b", -1), -1);
    EXPECT_EQ(record.AsString("b", "none"), "none");
    EXPECT_EQ(record.AsText("b", &length), nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(std::memcmp(record.AsBytes("b", &length), "12", 2), 0);
    EXPECT_EQ(length, 2u);
}

// --- children

TEST(Record, RefusesChildrenThatWouldTangleTheTree) {
    zRecord root;
    auto* child = new zRecord;
    auto* grandchild = new zRecord;
    ASSERT_EQ(root.AddChild(child, zRecord::k_at_end), 0);
    ASSERT_EQ(child->AddChild(grandchild, 0), 0);
    zRecord other;
    EXPECT_LT(root.AddChild(nullptr, 0), 0);
    EXPECT_LT(root.AddChild(&root, 0), 0);
    EXPECT_LT(grandchild->AddChild(child, 0), 0);
    EXPECT_LT(other.AddChild(child, 0), 0);
    EXPECT_LT(root.AddChild(child, 0), 0);
    EXPECT_LT(root.AddChild(&other, -1), 0);
    EXPECT_EQ(root.ChildCount(), 1u);
    EXPECT_EQ(grandchild->Parent(), child);
}

TEST(Record, InsertsWhereAskedAndVisitsInOrder) {
    zRecord root;
    const auto named = [](const char* name) {
        auto* record = new zRecord;
        record->SetCString("name", name, 0);
        return record;
    };
    root.AddChild(named("b"), zRecord::k_at_end);
    root.AddChild(named("d"), 99);
    root.AddChild(named("a"), 0);
    root.AddChild(named("c"), 2);
    std::string order;
    zRecordIterator visit(root);
    for (visit.Init(); !visit.Done(); visit.Next()) order += visit()->AsString("name", {});
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(visit(), nullptr);
    EXPECT_EQ(root.Child(4), nullptr);
    visit.Init();
    EXPECT_EQ(visit()->AsString("name", {}), "a");
}

TEST(Record, TakenAndDeletedChildrenLeaveTheirParent) {
    zRecord root;
    root.AddChild(new zRecord, 0);
    root.AddChild(new zRecord, 0);
    const std::unique_ptr<zRecord> taken(root.TakeChild(0));
    EXPECT_EQ(taken->Parent(), nullptr);
    delete root.Child(0);
    EXPECT_EQ(root.ChildCount(), 0u);
    EXPECT_EQ(root.TakeChild(0), nullptr);
}

// One call per level would overflow the stack.
TEST(Record, ATreeAMillionDeepGoesAndIsCopied) {
    auto root = std::make_unique<zRecord>();
    zRecord* deepest = root.get();
    for (int i = 0; i < 1000000; ++i) {
        auto* child = new zRecord;
        deepest->AddChild(child, 0);
        deepest = child;
    }
    deepest->SetInt32("depth", 1000000, 0);
    {
        const zRecord copy(*root);
        const zRecord* level = &copy;
        while (level->ChildCount() > 0) level = level->Child(0);
        EXPECT_EQ(level->AsInt32("depth", 0), 1000000);
    }
    root.reset();
}

TEST(Record, AssigningFromItselfAndFromAChildOfItsOwn) {
    zRecord root;
    root.SetInt32("n", 1, 0);
    auto* child = new zRecord;
    child->SetInt32("n", 2, 0);
    root.AddChild(child, 0);
    const zRecord& same = root;
    root = same;
    EXPECT_EQ(root.AsInt32("n", 0), 1);
    EXPECT_EQ(root.ChildCount(), 1u);
    root = *root.Child(0);
    EXPECT_EQ(root.AsInt32("n", 0), 2);
    EXPECT_EQ(root.ChildCount(), 0u);
}

class watching_record : public zRecord {
public:
    struct change {
        std::uint64_t id;
        bool exists;
        bool removing;
        bool operator==(const change&) const = default;
    };
    std::vector<change> changes;
    int value_seen = 0;

protected:
    void variable_changing(std::uint64_t id, bool exists, bool removing) override {
        changes.push_back({id, exists, removing});
        value_seen = AsInt32(k_number, -1);
    }
};

TEST(Record, ADerivedClassHearsOfEachChangeBeforeIt) {
    watching_record record;
    record.SetInt32(k_number, 1, 0);
    EXPECT_EQ(record.value_seen, -1);
    record.SetInt32(k_number, 2, 0);
    EXPECT_EQ(record.value_seen, 1);
    record.SetInt32("named", 3, 0);
    EXPECT_TRUE(record.RemoveID(k_number));
    EXPECT_FALSE(record.RemoveID(k_number));
    const std::vector<watching_record::change> want = {{k_number, false, false},
                                                       {k_number, true, false},
                                                       {0, false, false},
                                                       {k_number, true, true}};
    EXPECT_EQ(record.changes, want);
}

// It may change the record itself, so that the place which was found before is another one by then.
TEST(Record, ADerivedClassMayChangeTheRecordWhileItHears) {
    class meddling_record : public zRecord {
    public:
        bool is_quiet = false;

    protected:
        void variable_changing(std::uint64_t, bool, bool) override {
            if (std::exchange(is_quiet, true)) return;
            Remove("first");
            SetInt32("third", 33, 0);
            is_quiet = false;
        }
    };
    meddling_record record;
    record.is_quiet = true;
    record.SetInt32("first", 1, 0);
    record.SetInt32("second", 2, 0);
    record.is_quiet = false;
    record.SetInt32("second", 22, 0);
    record.SetInt32("third", 3, 0);
    EXPECT_EQ(record.VariableCount(), 2u);
    EXPECT_EQ(record.AsInt32("second", 0), 22);
    EXPECT_EQ(record.AsInt32("third", 0), 3);
}

// A record has an operator new of its own; the other forms are there as for any class.
TEST(Record, EveryFormOfNewMakesARecord) {
    const std::unique_ptr<zRecord> first(new (std::nothrow) zRecord);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->SetInt32("a", 1));
    alignas(zRecord) unsigned char place[sizeof(zRecord)];
    auto* const second = new (place) zRecord(*first);
    EXPECT_EQ(second->AsInt32("a", 0), 1);
    second->~zRecord();
    const std::unique_ptr<zRecord[]> several(new zRecord[3]);
    EXPECT_EQ(several[2].VariableCount(), 0u);
}

// Each at its place, and given back as it was taken.
TEST(Record, ADerivedClassMayBeAlignedFurther) {
    struct alignas(64) wide : zRecord {
        double values[8] = {};
    };
    zRecord parent;
    for (int i = 0; i < 8; ++i) {
        // Both ways end by the same operator delete.
        auto* const made = i % 2 == 0 ? new wide : new (std::nothrow) wide;
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(made) % alignof(wide), 0u);
        ASSERT_EQ(parent.AddChild(made, zRecord::k_at_end), 0);
    }
    parent.MakeEmpty();
    EXPECT_EQ(parent.ChildCount(), 0u);
}

}  // namespace
