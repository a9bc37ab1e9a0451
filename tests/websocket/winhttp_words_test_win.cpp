// winhttp_words_test_win.cpp - the words for WinHTTP's errors, which must not say more than it
// knows.
#include "websocket/winhttp_words.h"

#include <gtest/gtest.h>

#include <string>

namespace pennywort::websocket {
namespace {

struct word_case {
    unsigned long error;
    const char* words;
};

TEST(WinHttpWords, SayWhatTheNumberSays) {
    for (const word_case& one :
         {word_case{0, ""}, word_case{12002, "the server is silent (error 12002 of WinHTTP)"},
          word_case{12007, "the host is not found (error 12007 of WinHTTP)"},
          word_case{12029, "no connection (error 12029 of WinHTTP)"},
          word_case{12030, "the connection ended without a goodbye (error 12030 of WinHTTP)"},
          word_case{12157, "no agreement on TLS (error 12157 of WinHTTP)"},
          word_case{12175, "the server's certificate is not accepted (error 12175 of WinHTTP)"},
          word_case{12152, "no connection (error 12152 of WinHTTP)"}}) {
        EXPECT_EQ(words_of_winhttp(one.error), one.words);
    }
}

}  // namespace
}  // namespace pennywort::websocket
