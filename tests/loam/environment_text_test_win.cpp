// environment_text_test_win.cpp - variables of the environment that another thread changes between
// two calls of the system, and what is told of the second one.
#include <gtest/gtest.h>
#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "loam/environment_text.h"

namespace loam {
namespace {

struct told_call {
    const wchar_t* value;  // null: the call fails
    DWORD error;
};
std::vector<told_call> s_calls;  // what is still to come

// As the system does it: the size to come back with where there is no room, else the length.
DWORD WINAPI read_as_told(const wchar_t*, wchar_t* into, DWORD room) {
    const told_call now = s_calls.front();
    s_calls.erase(s_calls.begin());
    if (now.value == nullptr) {
        SetLastError(now.error);
        return 0;
    }
    const auto length = static_cast<DWORD>(std::wcslen(now.value));
    if (length + 1 > room) return length + 1;
    std::wmemcpy(into, now.value, length + 1);
    return length;
}

std::string read_all(const std::vector<told_call>& calls, DWORD& error) {
    s_calls = calls;
    error = 1;
    std::string text = environment_text("name", error, &read_as_told);
    EXPECT_TRUE(s_calls.empty());
    return text;
}

TEST(EnvironmentText, IsReadAgainUntilItFits) {
    DWORD error = 0;
    EXPECT_EQ(read_all({{L"a", 0}, {L"longer", 0}, {L"longer", 0}}, error), "longer");
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(read_all({{L"longer", 0}, {L"a", 0}}, error), "a");
    EXPECT_EQ(error, 0u);
}

TEST(EnvironmentText, TellsWhyTheSecondCallFails) {
    DWORD error = 0;
    EXPECT_EQ(read_all({{L"a", 0}, {nullptr, ERROR_NOT_ENOUGH_MEMORY}}, error), "");
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(read_all({{nullptr, ERROR_NOT_ENOUGH_MEMORY}}, error), "");
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
}

TEST(EnvironmentText, ThatIsEmptyOrTakenAwayIsNoError) {
    DWORD error = 0;
    EXPECT_EQ(read_all({{L"a", 0}, {nullptr, ERROR_ENVVAR_NOT_FOUND}}, error), "");
    EXPECT_EQ(error, 0u);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // of something before
    EXPECT_EQ(read_all({{L"", 0}, {L"", 0}}, error), "");
    EXPECT_EQ(error, 0u);
}

}  // namespace
}  // namespace loam
