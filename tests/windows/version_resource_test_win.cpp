// version_resource_test_win.cpp - what the properties of our files say.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class VersionResource : public testing::TestWithParam<const wchar_t*> {
protected:
    void SetUp() override {
        const fs::path file = fs::path(BUILT_FILES) / GetParam();
        DWORD unused = 0;
        m_bytes.resize(GetFileVersionInfoSizeW(file.c_str(), &unused));
        ASSERT_FALSE(m_bytes.empty()) << file;
        ASSERT_TRUE(GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(m_bytes.size()),
                                        m_bytes.data()));
    }
    std::wstring text(const std::wstring& name) const {
        void* value = nullptr;
        UINT length = 0;
        const std::wstring path = L"\\StringFileInfo\\040904B0\\" + name;
        if (!VerQueryValueW(m_bytes.data(), path.c_str(), &value, &length)) return L"(none)";
        return static_cast<const wchar_t*>(value);
    }

    std::vector<char> m_bytes;
};

TEST_P(VersionResource, NamesTheFileTheProductAndItsVersion) {
    EXPECT_EQ(text(L"OriginalFilename"), GetParam());
    EXPECT_EQ(text(L"ProductName"), L"pennywort");
    EXPECT_EQ(text(L"ProductVersion"), L"" PRODUCT_VERSION);
    EXPECT_EQ(text(L"FileVersion"), L"" PRODUCT_VERSION);
    EXPECT_GT(text(L"FileDescription").size(), 6u);
}

TEST_P(VersionResource, HasTheSameVersionAsNumbers) {
    void* value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(m_bytes.data(), L"\\", &value, &length));
    const auto& numbers = *static_cast<const VS_FIXEDFILEINFO*>(value);
    const std::wstring version = std::to_wstring(HIWORD(numbers.dwFileVersionMS)) + L"." +
                                 std::to_wstring(LOWORD(numbers.dwFileVersionMS)) + L"." +
                                 std::to_wstring(HIWORD(numbers.dwFileVersionLS));
    EXPECT_EQ(version, L"" PRODUCT_VERSION);
    const bool is_library = std::wstring(GetParam()).ends_with(L".dll");
    EXPECT_EQ(numbers.dwFileType, static_cast<DWORD>(is_library ? VFT_DLL : VFT_APP));
}

INSTANTIATE_TEST_SUITE_P(All, VersionResource,
                         testing::Values(L"loam.dll", L"pennywort.dll", L"pennywort.exe",
                                         L"CEFChildProcess.exe"),
                         [](const auto& test) {
                             std::string name;
                             for (const wchar_t c : std::wstring(test.param)) {
                                 name += c == L'.' ? '_' : static_cast<char>(c);
                             }
                             return name;
                         });

}  // namespace
