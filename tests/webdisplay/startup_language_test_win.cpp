// startup_language_test_win.cpp - the locale that the runtime is started with. Linux half:
// startup_language_test_linux.cpp.
#include <windows.h>

#include <ostream>

#include "tests/webdisplay/fake_runtime_test.h"
#include "webdisplay/runtime_settings.h"

namespace {

using StartupLanguage = FakeRuntimeTest;

struct language_case {
    const char* name;
    LANGID language;
    const char* want;
};
void PrintTo(const language_case& c, std::ostream* out) { *out << c.name; }
class LanguageTest : public testing::TestWithParam<language_case> {};

TEST_P(LanguageTest, TheLocaleFollowsTheSystemsNumberOfIt) {
    const LANGID language = GetParam().language;
    const pennywort::webdisplay::ui_language ui{static_cast<std::uint16_t>(PRIMARYLANGID(language)),
                                                static_cast<std::uint16_t>(SUBLANGID(language))};
    EXPECT_STREQ(pennywort::webdisplay::runtime_locale(ui), GetParam().want);
}
INSTANTIATE_TEST_SUITE_P(
    All, LanguageTest,
    testing::Values(
        language_case{"None", 0x0000, "en_US"}, language_case{"UnitedStates", 0x0409, "en_US"},
        language_case{"British", 0x0809, "en_US"}, language_case{"Danish", 0x0406, "en_US"},
        language_case{"Portugal", 0x0816, "en_US"}, language_case{"Brazil", 0x0416, "pt_BR"},
        language_case{"Taiwan", 0x0404, "zh-Hans"}, language_case{"China", 0x0804, "zh-Hans"},
        language_case{"Czech", 0x0405, "cs_CZ"}, language_case{"Austria", 0x0C07, "de_DE"},
        language_case{"Mexico", 0x080A, "es_ES"}, language_case{"Canada", 0x0C0C, "fr_FR"},
        language_case{"Italian", 0x0410, "it_IT"}, language_case{"Japanese", 0x0411, "ja_JP"},
        language_case{"Korean", 0x0412, "ko_KR"}, language_case{"Belgium", 0x0813, "nl_NL"},
        language_case{"Finland", 0x081D, "sv_SE"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(StartupLanguage, TheRuntimeGetsTheLocaleOfTheUsersInterface) {
    const LANGID language = GetUserDefaultUILanguage();
    start();
    EXPECT_EQ(fake().settings().locale, pennywort::webdisplay::runtime_locale(
                                            {static_cast<std::uint16_t>(PRIMARYLANGID(language)),
                                             static_cast<std::uint16_t>(SUBLANGID(language))}));
}

}  // namespace
