// tests/host/page_language_test.cpp - the user's language: its name, and whether a browser has it.
#include "host/render/page_language.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pennywort::host {
namespace {

TEST(PageLanguage, HasALanguageInFront) {
    for (const char* one : {"de", "de-CH", "de_CH", "gsw-CH", "zh-Hant-TW", "es-419"}) {
        EXPECT_TRUE(is_locale(one)) << one;
    }
    for (const char* one : {"", "d", "123", "-de", "german", "de CH", "de.UTF-8", "C", "d2"}) {
        EXPECT_FALSE(is_locale(one)) << one;
    }
}

TEST(PageLanguage, IsSpokenByThePackOfItOrOfOneOfItsRegions) {
    const std::vector<std::string> packs{"de.pak",    "en-GB.pak",     "en-US.pak",
                                         "nb.pak",    "zh-TW.pak",     "fil.pak",
                                         "pt-BR.pak", "af_NEUTER.pak", "sv.txt"};
    for (const char* one :
         {"de", "de-CH", "DE-ch", "en", "en-AU", "no", "nb-NO", "zh-Hant-HK", "tl", "fil", "pt"}) {
        EXPECT_TRUE(has_words_of(one, packs)) << one;
    }
    for (const char* one : {"gsw-CH", "d", "sv", "fi", "af"}) {
        EXPECT_FALSE(has_words_of(one, packs)) << one;
    }
}

TEST(PageLanguage, OfNobodyChangesNothing) { EXPECT_EQ(speak_as(""), ""); }

}  // namespace
}  // namespace pennywort::host
