// chunked_body_test.cpp - the chunked coding, at every split of its bytes.
#include "core/http/chunked_body.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "core/limits.h"

namespace pennywort::http {
namespace {

using body_state = chunked_body::state;

struct chunked_case {
    const char* name;
    std::string_view bytes;
    body_state want;
    std::string_view body;
    std::size_t used;
};
void PrintTo(const chunked_case& c, std::ostream* out) { *out << c.name; }

constexpr chunked_case k_chunked_cases[] = {
    {"Empty", "0\r\n\r\n", body_state::complete, "", 5},
    {"One", "3\r\nabc\r\n0\r\n\r\n", body_state::complete, "abc", 13},
    {"Two", "1\r\na\r\n2\r\nbc\r\n0\r\n\r\nGET", body_state::complete, "abc", 18},
    {"HexInBothCases", "a\r\n0123456789\r\nB\r\n0123456789a\r\n0\r\n\r\n", body_state::complete,
     "01234567890123456789a", 36},
    {"LeadingZeros", "0003\r\nabc\r\n000\r\n\r\n", body_state::complete, "abc", 18},
    {"Extension", "3;a=b;c=\"d\"\r\nabc\r\n0 ; x\r\n\r\n", body_state::complete, "abc", 27},
    {"BlankBehindSize", "3 \r\nabc\r\n0\r\n\r\n", body_state::complete, "abc", 14},
    {"WordBehindSize", "3 5\r\nabc", body_state::refused, "", 2},
    {"WordBehindALaterSize", "1;x\r\na\r\n3 5\r\n", body_state::refused, "a", 10},
    {"Trailers", "0\r\nA: b\r\n\r\n", body_state::complete, "", 11},
    {"LineEndsInTheBody", "4\r\n\r\n\r\n\r\n0\r\n\r\n", body_state::complete, "\r\n\r\n", 14},
    {"NoSize", "\r\n", body_state::refused, "", 0},
    {"NoHex", "g\r\n", body_state::refused, "", 0},
    {"Sign", "-1\r\n", body_state::refused, "", 0},
    {"Prefix", "0x3\r\nabc", body_state::refused, "", 1},
    {"BareLfBehindSize", "3\nabc", body_state::refused, "", 1},
    {"BareCrBehindSize", "3\rabc", body_state::refused, "", 2},
    {"BareLfInExtension", "3;a\nabc", body_state::refused, "", 3},
    {"TooMuchContent", "3\r\nabcd\r\n", body_state::refused, "abc", 6},
    {"BareLfBehindContent", "3\r\nabc\n", body_state::refused, "abc", 6},
    {"BareCrBehindContent", "3\r\nabc\r0", body_state::refused, "abc", 7},
    {"TooLarge", "1234567890abcdef\r\n", body_state::refused, "", 15},
    {"BadTrailer", "0\r\nA b\r\n\r\n", body_state::refused, "", 8},
    {"Unfinished", "3\r\nab", body_state::need_more, "ab", 5},
};

struct reading {
    std::string body;
    std::size_t used = 0;
};

void feed(chunked_body& coding, std::string_view bytes, reading& so_far) {
    std::string_view content;
    std::size_t used = 0;
    do {
        used = coding.feed(bytes, content);
        bytes.remove_prefix(used);
        so_far.body += content;
        so_far.used += used;
    } while (used > 0 && coding.status() == body_state::need_more && !bytes.empty());
}

class ChunkedBodyTest : public testing::TestWithParam<chunked_case> {};

TEST_P(ChunkedBodyTest, GivesTheSameAtEverySplit) {
    const chunked_case& c = GetParam();
    chunked_body coding;
    for (std::size_t split = 0; split <= c.bytes.size(); ++split) {
        SCOPED_TRACE(testing::Message() << "split at " << split);
        coding.reset();
        reading all;
        feed(coding, c.bytes.substr(0, split), all);
        feed(coding, c.bytes.substr(all.used), all);
        EXPECT_EQ(coding.status(), c.want);
        EXPECT_EQ(all.body, c.body);
        EXPECT_EQ(all.used, c.used);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ChunkedBodyTest, testing::ValuesIn(k_chunked_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(ChunkedBody, GivesTheTrailers) {
    chunked_body coding;
    reading all;
    feed(coding, "1\r\na\r\n0\r\nDigest: x\r\n\r\n", all);
    ASSERT_EQ(coding.status(), body_state::complete);
    EXPECT_EQ(coding.trailers().find("digest"), "x");
}

// A peer could send a thousand bytes beside each byte of a body, for ever.
TEST(ChunkedBody, RefusesExtensionsWithoutEnd) {
    chunked_body coding;
    reading all;
    const std::string chunk = "1;" + std::string(1000, 'x') + "\r\na\r\n";
    std::size_t chunks = 0;
    while (coding.status() == body_state::need_more && chunks < 1000) {
        feed(coding, chunk, all);
        ++chunks;
    }
    EXPECT_EQ(coding.status(), body_state::refused);
    EXPECT_EQ(chunks, k_max_chunk_extension_bytes / 1001 + 1);
}

}  // namespace
}  // namespace pennywort::http
