// answer_filter_test.cpp - how far an answer is that passes unchanged, however it is split.
#include "httpserver/answer_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "httpserver/answer.h"

namespace {

using pennywort::httpserver::answer_filter;

struct answer_case {
    const char* name;
    std::string bytes;
    bool is_complete;
};
void PrintTo(const answer_case& one, std::ostream* out) { *out << one.name; }

std::string answer_of(std::string_view type, std::size_t length, std::size_t sent) {
    std::string answer;
    pennywort::httpserver::append_head(answer, 200, pennywort::httpserver::after_answer::keep_alive,
                                       type, static_cast<std::int64_t>(length));
    return answer.append(sent, 'b');
}

std::vector<answer_case> cases() {
    const std::string long_type(5000, 't');
    return {{"nothing", "", false},
            {"half_a_head", answer_of("text/plain", 5, 0).substr(0, 30), false},
            {"no_head", std::string(3000, 'n'), false},
            {"head_alone", answer_of("text/plain", 5, 0), false},
            {"empty", answer_of("text/plain", 0, 0), true},
            {"short_half", answer_of("text/plain", 5, 2), false},
            {"short_whole", answer_of("text/plain", 5, 5), true},
            {"long_half", answer_of("text/plain", 9000, 8999), false},
            {"long_whole", answer_of("text/plain", 9000, 9000), true},
            {"long_head_half", answer_of(long_type, 5, 4), false},
            {"long_head_whole", answer_of(long_type, 5, 5), true},
            {"bodiless", "HTTP/1.1 304 Not Modified\r\n\r\n", true},
            {"without_length", "HTTP/1.1 200 OK\r\n\r\nbody", false}};
}

class PlainAnswerTest : public testing::TestWithParam<answer_case> {
protected:
    // The bytes in pieces of so many.
    void pass_in(std::size_t size) {
        m_filter.begin_plain();
        std::string_view left = GetParam().bytes;
        while (!left.empty()) {
            const std::string_view piece = left.substr(0, size);
            EXPECT_EQ(m_filter.pass(piece), piece);
            left.remove_prefix(piece.size());
        }
    }

    answer_filter m_filter;
};

TEST_P(PlainAnswerTest, IsKnownToBeWholeHoweverItIsSplit) {
    const std::string& bytes = GetParam().bytes;
    for (const std::size_t size : {1, 2, 3, 7, 100, 160, 2047, 2048, 2049, 100'000}) {
        SCOPED_TRACE(testing::Message() << "in pieces of " << size);
        pass_in(size);
        EXPECT_EQ(m_filter.has_begun(), !bytes.empty());
        EXPECT_EQ(m_filter.is_complete(), GetParam().is_complete);
    }
}

TEST_P(PlainAnswerTest, MayBeAskedForAtEachByte) {
    const std::string_view bytes = GetParam().bytes;
    m_filter.begin_plain();
    bool is_complete = false;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_FALSE(is_complete) << "at " << i;
        m_filter.pass(bytes.substr(i, 1));
        is_complete = m_filter.is_complete();
    }
    EXPECT_EQ(is_complete, GetParam().is_complete);
}

INSTANTIATE_TEST_SUITE_P(All, PlainAnswerTest, testing::ValuesIn(cases()),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
