// library_test.cpp - zLibrary, zErrCodeManager, zPoint, zSharedObject and zTime.
#include "loam/library.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>

#include "loam/error_codes.h"
#include "loam/point.h"
#include "loam/shared_object.h"
#include "loam/time.h"

namespace {

TEST(Library, SaysWhyALibraryCannotBeLoaded) {
    const std::unique_ptr<zLibrary> library(zLibrary::Factory());
    EXPECT_LT(library->Load("no_such_library_anywhere"), 0);
    EXPECT_STRNE(library->Error(), "");
    EXPECT_FALSE(library->IsLoaded());
    EXPECT_EQ(library->Symbol("plugin_answer"), nullptr);
    EXPECT_LT(library->Load(nullptr), 0);
    library->Unload();
}

TEST(Library, FindsWhatIsExportedAndNothingElse) {
    const std::unique_ptr<zLibrary> library(zLibrary::Factory());
    ASSERT_EQ(library->Load(LOAM_TEST_PLUGIN), 0) << library->Error();
    EXPECT_STREQ(library->Error(), "");
    const auto answer = reinterpret_cast<int (*)()>(library->Symbol("plugin_answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(library->Symbol("plugin_question"), nullptr);
    EXPECT_STRNE(library->Error(), "");
    EXPECT_EQ(library->Symbol(nullptr), nullptr);
}

TEST(Library, AFailedLoadLeavesNothingOfTheOneBefore) {
    const std::unique_ptr<zLibrary> library(zLibrary::Factory());
    ASSERT_EQ(library->Load(LOAM_TEST_PLUGIN), 0);
    EXPECT_LT(library->Load("no_such_library_anywhere"), 0);
    EXPECT_FALSE(library->IsLoaded());
    EXPECT_EQ(library->Symbol("plugin_answer"), nullptr);
}

TEST(Library, KeptLibrariesOutliveTheirObject) {
    int (*answer)() = nullptr;
    {
        const std::unique_ptr<zLibrary> library(zLibrary::Factory());
        ASSERT_EQ(library->Load(LOAM_TEST_PLUGIN), 0);
        answer = reinterpret_cast<int (*)()>(library->Symbol("plugin_answer"));
        library->Keep();
    }
    EXPECT_EQ(answer(), 42);
}

TEST(ErrorCodes, RangesThatMakeNoSenseAreRefused) {
    EXPECT_LT(zErrCodeManager::RegisterCodeRange(5, 4, "backwards"), 0);
    EXPECT_LT(zErrCodeManager::RegisterCodeRange(-50, -40, nullptr), 0);
    EXPECT_LT(zErrCodeManager::RegisterCodeRange(-50, -40, ""), 0);
    EXPECT_STREQ(zErrCodeManager::LabelFor(-45), "");
}

TEST(ErrorCodes, LabelsReachBothEndsOfTheirRange) {
    ASSERT_EQ(zErrCodeManager::RegisterCodeRange(-21000, -8999, "test errors"), 0);
    EXPECT_EQ(zErrCodeManager::RegisterCodeRange(-21000, -8999, "test errors"), 0) << "again";
    EXPECT_LT(zErrCodeManager::RegisterCodeRange(-9000, -8000, "meets it"), 0);
    EXPECT_STREQ(zErrCodeManager::LabelFor(-21000), "test errors");
    EXPECT_STREQ(zErrCodeManager::LabelFor(-8999), "test errors");
    EXPECT_STREQ(zErrCodeManager::LabelFor(-21301), "");
    EXPECT_STREQ(zErrCodeManager::LabelFor(-8998), "");
}

TEST(Point, HoldsTwoNumbers) {
    zPoint point;
    EXPECT_EQ(point.X(), 0);
    point.Set(std::numeric_limits<std::int32_t>::min(), 7);
    zPoint copy;
    copy = point;
    EXPECT_TRUE(copy == point);
    EXPECT_EQ(copy.X(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(copy.Y(), 7);
}

class shared_thing : public zSharedObject {};

TEST(SharedObject, ReturnsTheOwnersPointer) {
    const auto owner = std::make_shared<shared_thing>();
    EXPECT_EQ(owner->shared_from_this(), owner);
    const shared_thing copy(*owner);
    EXPECT_THROW(const_cast<shared_thing&>(copy).shared_from_this(), std::bad_weak_ptr);
    EXPECT_EQ(owner.use_count(), 1);
}

// An hour is longer than any correction of the time of day during a run.
TEST(Time, IsTheTimeOfDay) {
    using std::chrono::microseconds;
    using std::chrono::system_clock;
    const auto of_day =
        std::chrono::duration_cast<microseconds>(system_clock::now().time_since_epoch());
    constexpr microseconds k_hour = std::chrono::hours(1);
    EXPECT_LT(std::abs(zTime::MicroNow() - of_day.count()), k_hour.count());
}

TEST(Time, NeverGoesBack) {
    std::int64_t last = zTime::MicroNow();
    for (int i = 0; i < 10000; ++i) {
        const std::int64_t now = zTime::MicroNow();
        ASSERT_GE(now, last);
        last = now;
    }
}

}  // namespace
