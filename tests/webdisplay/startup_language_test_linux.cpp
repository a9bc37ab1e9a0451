// startup_language_test_linux.cpp - the locale that the runtime is started with. Windows half:
// startup_language_test_win.cpp.
#include <ostream>

#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"

namespace {

using StartupLanguage = FakeRuntimeTest;

struct language_case {
    const char* name;
    const char* variable;
    const char* value;
    const char* want;
};
void PrintTo(const language_case& c, std::ostream* out) { *out << c.name; }
class StartupLanguageTest : public FakeRuntimeTest,
                            public testing::WithParamInterface<language_case> {};

TEST_P(StartupLanguageTest, TheLocaleFollowsTheUsersLanguage) {
    test_process::set_variable(GetParam().variable, GetParam().value);
    start();
    EXPECT_EQ(fake().settings().locale, GetParam().want);
}
INSTANTIATE_TEST_SUITE_P(
    All, StartupLanguageTest,
    testing::Values(language_case{"Plain", "LANG", "C", "en_US"},
                    language_case{"PlainUtf8", "LANG", "C.UTF-8", "en_US"},
                    language_case{"Posix", "LANG", "POSIX", "en_US"},
                    language_case{"Empty", "LANG", "", "en_US"},
                    language_case{"Nonsense", "LANG", "%s\xFF", "en_US"},
                    language_case{"British", "LANG", "en_GB.UTF-8", "en_US"},
                    language_case{"Danish", "LANG", "da_DK.UTF-8", "en_US"},
                    language_case{"Portugal", "LANG", "pt_PT.UTF-8", "en_US"},
                    language_case{"PortugueseAlone", "LANG", "pt", "en_US"},
                    language_case{"Brazil", "LANG", "pt_BR.UTF-8", "pt_BR"},
                    language_case{"Taiwan", "LANG", "zh_TW.UTF-8", "zh-Hans"},
                    language_case{"China", "LANG", "zh_CN", "zh-Hans"},
                    language_case{"Austria", "LANG", "de_AT@euro", "de_DE"},
                    language_case{"Czech", "LANG", "cs_CZ.UTF-8", "cs_CZ"},
                    language_case{"Mexico", "LANG", "es_MX.UTF-8", "es_ES"},
                    language_case{"Canada", "LANG", "fr_CA.UTF-8", "fr_FR"},
                    language_case{"Italian", "LANG", "it_IT", "it_IT"},
                    language_case{"Japanese", "LANG", "ja_JP.eucJP", "ja_JP"},
                    language_case{"Korean", "LANG", "ko_KR", "ko_KR"},
                    language_case{"Belgium", "LANG", "nl_BE", "nl_NL"},
                    language_case{"Finland", "LANG", "sv_FI", "sv_SE"},
                    language_case{"Messages", "LC_MESSAGES", "ja_JP.UTF-8", "ja_JP"},
                    language_case{"AllOfThem", "LC_ALL", "ko_KR.UTF-8", "ko_KR"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(StartupLanguage, TheVariablesOfTheLanguageOverrideEachOther) {
    test_process::set_variable("LANG", "de_DE");
    test_process::set_variable("LC_MESSAGES", "fr_FR");
    test_process::set_variable("LC_ALL", "it_IT");
    start();
    EXPECT_EQ(fake().settings().locale, "it_IT");
}

}  // namespace
