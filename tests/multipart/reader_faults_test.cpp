// reader_faults_test.cpp - messages that are cut, that put their delimiters at odd places, or whose
// headers are none.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "multipart.h"

namespace {

struct place {
    std::int32_t offset;
    std::int32_t size;
    bool operator==(const place&) const = default;
};

struct reading {
    zStatus status;
    std::vector<place> parts;
};

reading read(std::string_view body, std::string_view boundary) {
    // Memory of its own size: a sanitizer notices a look past it.
    const std::vector<char> exact(body.begin(), body.end());
    zRecord record;
    cMultipartReader reader(record);
    reading found{
        reader.Parse_BodyOnly(exact.data(), static_cast<std::int32_t>(exact.size()),
                              boundary.data(), static_cast<std::int32_t>(boundary.size()), 0),
        {}};
    for (std::uint32_t i = 0; i < record.ChildCount(); ++i) {
        const zRecord& section = *record.Child(i);
        found.parts.push_back(
            {section.AsInt32("__data_offset", -1), section.AsInt32("__data_size", -1)});
    }
    return found;
}

// Wherever the buffer ends, the parts that it holds whole are the ones of the whole message, and at
// most one more has begun.
TEST(MultipartFaults, EveryCutKeepsThePartsThatAreWhole) {
    std::string body;
    for (int i = 0; i < 6; ++i) {
        body += "--BB\r\nX: " + std::string(static_cast<std::size_t>(i), 'v') + "\r\n\r\n" +
                std::string(static_cast<std::size_t>(i * 7), 'd') + "\r\n";
    }
    body += "--BB--";
    const reading whole = read(body, "BB");
    ASSERT_EQ(whole.status, 0);
    ASSERT_EQ(whole.parts.size(), 6u);
    for (std::size_t length = 0; length < body.size(); ++length) {
        SCOPED_TRACE(length);
        const reading cut = read(std::string_view(body).substr(0, length), "BB");
        std::size_t complete = 0;
        for (const place& part : whole.parts) {
            const auto end = static_cast<std::size_t>(part.offset + part.size) + 6;
            complete += end <= length;
        }
        ASSERT_GE(cut.parts.size(), complete);
        ASSERT_LE(cut.parts.size(), complete + 1);
        for (std::size_t i = 0; i < complete; ++i) EXPECT_EQ(cut.parts[i], whole.parts[i]);
        // What has only begun has no place yet.
        if (cut.parts.size() == complete) continue;
        EXPECT_EQ(cut.parts.back(), (place{0, 0}));
    }
}

// The search looks at blocks and takes strides: the delimiter ends at each offset of both, in data
// that looks like it.
TEST(MultipartFaults, ADelimiterIsFoundAtEveryOffset) {
    for (const std::size_t boundary_length : {1U, 16U, 40U, 70U, 71U, 251U}) {
        const std::string boundary(boundary_length, 'b');
        const std::string nearly = "\r\n--" + boundary.substr(1);
        for (std::size_t size = 0; size < 600; ++size) {
            std::string data;
            while (data.size() < size) data += nearly;
            data.resize(size, '-');
            const reading found =
                read("--" + boundary + "\r\n\r\n" + data + "\r\n--" + boundary + "--", boundary);
            ASSERT_EQ(found.status, 0) << boundary_length << " " << size;
            const auto start = static_cast<std::int32_t>(boundary_length) + 6;
            ASSERT_EQ(found.parts, (std::vector<place>{{start, static_cast<std::int32_t>(size)}}))
                << boundary_length << " " << size;
        }
    }
}

TEST(MultipartFaults, ABoundaryThatComesTwiceEndsTwoParts) {
    const reading found = read("--B\r\n\r\nx\r\n--B\r\n\r\n\r\n--B\r\n\r\n\r\n--B--", "B");
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.parts, (std::vector<place>{{7, 1}, {17, 0}, {26, 0}}));
}

TEST(MultipartFaults, AHeaderWithoutAColonIsPassedOverHoweverLong) {
    const std::string line(1 << 20, 'h');
    zRecord record;
    cMultipartReader reader(record);
    const std::string body = "--B\r\n" + line + "\r\nA: b\r\n\r\nx\r\n--B--";
    ASSERT_EQ(reader.Parse_BodyOnly(body.data(), static_cast<std::int32_t>(body.size()), "B", 1, 0),
              0);
    const zRecord& section = *record.Child(0);
    EXPECT_EQ(section.VariableCount(), 3u);
    EXPECT_EQ(section.AsString("A", ""), "b");
    EXPECT_EQ(section.AsInt32("__data_size", -1), 1);
}

TEST(MultipartFaults, AHeaderOfAMebibyteIsKept) {
    const std::string value(1 << 20, 'v');
    zRecord record;
    cMultipartReader reader(record);
    const std::string body = "--B\r\nA: " + value + "\r\n\r\nx\r\n--B--";
    ASSERT_EQ(reader.Parse_BodyOnly(body.data(), static_cast<std::int32_t>(body.size()), "B", 1, 0),
              0);
    EXPECT_EQ(record.Child(0)->AsString("A", ""), value);
}

TEST(MultipartFaults, APartThatNeverEndsIsAFault) {
    const reading found = read("--B\r\n\r\n" + std::string(5'000'000, '-'), "B");
    EXPECT_EQ(found.status, -1);
    EXPECT_EQ(found.parts, (std::vector<place>{{0, 0}}));
}

// A size below zero would let a host read in front of the message.
TEST(MultipartFaults, HeadersDoNotTellWhereAPartIs) {
    const std::string claim = "--B\r\n__data_offset: 2\r\n__data_size: -1\r\n\r\n";
    const reading endless = read(claim + "data", "B");
    EXPECT_EQ(endless.status, -1);
    EXPECT_EQ(endless.parts, (std::vector<place>{{0, 0}}));
    const reading whole = read(claim + "data\r\n--B--", "B");
    EXPECT_EQ(whole.status, 0);
    EXPECT_EQ(whole.parts, (std::vector<place>{{static_cast<std::int32_t>(claim.size()), 4}}));
}

}  // namespace
