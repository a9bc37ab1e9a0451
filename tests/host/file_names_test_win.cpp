// tests/host/file_names_test_win.cpp - names that differ by case, also where the system does not
// compare them.
#include <gtest/gtest.h>
#include <windows.h>

#include "host/system/file_names.h"
#include "host/system/name_calls_win.h"
#include "tests/support/collected_traces.h"

namespace pennywort::host {
namespace {

TEST(FileNames, ThatDifferByCaseAreOne) {
    EXPECT_TRUE(are_one_name(L"C:\\Films\\Gr\u00fcn.MOV", L"c:/films/gr\u00dcn.mov"));
    EXPECT_FALSE(are_one_name(L"C:\\films\\a.mov", L"C:\\films\\b.mov"));
}

TEST(FileNames, ThatTheSystemDoesNotCompareAreComparedAllTheSame) {
    name_calls::compare_string_ordinal = [](LPCWCH, int, LPCWCH, int, BOOL) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    };
    const tests::collected_traces traces;
    EXPECT_TRUE(are_one_name(L"C:\\Films\\a.MOV", L"c:/films/a.mov"));
    EXPECT_FALSE(are_one_name(L"C:\\films\\a.mov", L"C:\\films\\b.mov"));
    name_calls::compare_string_ordinal = &CompareStringOrdinal;
    EXPECT_EQ(traces.text(),
              "pennywort: CompareStringOrdinal failed (err=87)\n"
              "pennywort: CompareStringOrdinal failed (err=87)\n");
}

}  // namespace
}  // namespace pennywort::host
