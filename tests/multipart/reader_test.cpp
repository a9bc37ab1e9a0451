// reader_test.cpp - received messages taken apart, whole, broken and hostile.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "multipart.h"

namespace {

// The bytes in memory of exactly their size, so that a sanitizer sees a read past their end.
class exact_bytes {
public:
    explicit exact_bytes(std::string_view text)
        : m_size(text.size()), m_bytes(new char[text.size()]) {
        text.copy(m_bytes.get(), text.size());
    }
    const char* data() const { return m_bytes.get(); }
    std::int32_t size() const { return static_cast<std::int32_t>(m_size); }

private:
    std::size_t m_size;
    std::unique_ptr<char[]> m_bytes;
};

// "type|data" of each section, in order.
std::string layout(zRecord& record, const cMultipartReader& reader, const exact_bytes& bytes) {
    const cMultipartRecord message(record, nullptr);
    std::string found;
    for (std::int32_t i = 0; i < message.SectionCount(); ++i) {
        cMultipartRecord::Section section;
        message.GetSection(section, i);
        const char* data = nullptr;
        std::int32_t size = 0;
        reader.GetSectionData(section, bytes.data(), bytes.size(), &data, &size);
        found += section.HeaderByName("Content-Type", "-") + "|";
        if (data != nullptr) found.append(data, static_cast<std::size_t>(size));
        found += ";";
    }
    return found;
}

struct body_case {
    const char* name;
    std::string_view body;
    std::string_view boundary;
    zStatus want;
    std::string_view layout;
};
void PrintTo(const body_case& c, std::ostream* out) { *out << c.name; }

constexpr std::string_view k_one = "--B\r\nContent-Type: text/xml\r\n\r\n<x/>\r\n--B--";

const body_case k_bodies[] = {
    {"One", k_one, "B", 0, "text/xml|<x/>;"},
    {"Two", "--B\r\nContent-Type: a\r\n\r\n1\r\n--B\r\nContent-Type: b\r\n\r\n22\r\n--B--", "B", 0,
     "a|1;b|22;"},
    {"NoHeaders", "--B\r\n\r\ndata\r\n--B--", "B", 0, "-|data;"},
    {"EmptyPart", "--B\r\n\r\n\r\n--B--", "B", 0, "-|;"},
    {"LineEndsInside", "--B\r\n\r\na\r\n\r\nb\r\n\r\n--B--", "B", 0, "-|a\r\n\r\nb\r\n;"},
    {"BoundaryIsAPrefixOfTheData", "--B\r\n\r\n\r\n--\r\n-B\r\n--B--", "B", 0, "-|\r\n--\r\n-B;"},
    {"DelimiterWithoutItsLineEndIsData", "--B\r\n\r\n--B\r\n--B--", "B", 0, "-|--B;"},
    {"OpeningIsNotChecked", "??C\r\n\r\nx\r\n--B--", "B", 0, "-|x;"},
    {"BytesBehindTheEnd", "--B\r\n\r\nx\r\n--B--\r\nepilogue", "B", 0, "-|x;"},
    {"EndsAtOnce", "--B--", "B", 0, ""},
    {"OneDashIsTheEndToo", "--B\r\n\r\nx\r\n--B-x", "B", 0, "-|x;"},
    {"ADashInSecondPlaceIsTheEndToo", "--B\r\n\r\nx\r\n--Bx-", "B", 0, "-|x;"},
    {"NoEnd", "--B\r\n\r\nx", "B", -1, "-|;"},
    {"EndsRightBehindADelimiter", "--B\r\n\r\nx\r\n--B", "B", -1, "-|x;"},
    {"OneByteBehindADelimiter", "--B\r\n\r\nx\r\n--B!", "B", 0, "-|x;"},
    {"LineEndBehindADelimiter", "--B\r\n\r\nx\r\n--B\r\n", "B", -1, "-|x;"},
    {"OneByteBehindTheOpening", "--B!", "B", 0, ""},
    {"NothingBehindTheOpening", "--B", "B", -1, ""},
    {"HeadersOnly", "--B\r\nContent-Type: a\r\n", "B", -1, "a|;"},
    {"BoundaryLongerThanTheBody", "--B", "BBBBBBBB", -1, ""},
    {"AnotherBoundary", "--B\r\n\r\nx\r\n--B--", "C", -1, "-|;"},
};

class Bodies : public testing::TestWithParam<body_case> {};

TEST_P(Bodies, GiveTheirSectionsAndAStatus) {
    const body_case& c = GetParam();
    const exact_bytes bytes(c.body);
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), c.boundary.data(),
                                    static_cast<std::int32_t>(c.boundary.size()), 0),
              c.want);
    EXPECT_EQ(layout(record, reader, bytes), c.layout);
}

INSTANTIATE_TEST_SUITE_P(All, Bodies, testing::ValuesIn(k_bodies),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(MultipartReader, TellsOffsetAndSizeInTheBuffer) {
    const exact_bytes bytes(k_one);
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, 0), 0);
    cMultipartRecord::Section section;
    ASSERT_EQ(cMultipartRecord(record, nullptr).GetSection(section, 0), 0);
    EXPECT_EQ(section.GetDataOffset(), 31);
    EXPECT_EQ(section.GetDataSize(), 4);
    EXPECT_EQ(record.AsString("Content-Type", ""), "multipart/related");
}

TEST(MultipartReader, EveryCutOfAMessageIsReadWithinItsBytes) {
    const std::string whole =
        "MIME-Version: 1.0\r\nContent-Type: multipart/related;boundary=BB\r\n\r\n"
        "--BB\r\nContent-Type: a\r\n\r\n1\r\n--BB\r\n\r\n22\r\n--BB--";
    for (std::size_t length = 1; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        const exact_bytes bytes(std::string_view(whole).substr(0, length));
        zRecord record;
        cMultipartReader reader(record);
        const zStatus status = reader.Parse_WithHeaders(bytes.data(), bytes.size());
        // A single byte behind a delimiter is taken for the end, whatever it is.
        const bool is_enough =
            length == whole.size() || whole.substr(0, length - 1).ends_with("--BB");
        EXPECT_EQ(status, is_enough ? 0 : -1);
    }
}

TEST(MultipartReader, HeadersInFrontNameTheBoundary) {
    const exact_bytes bytes(
        "X-Other: y\r\nContent-Type: multipart/related; type=\"a\"; boundary=B\r\n\r\n"
        "--B\r\n\r\nx\r\n--B--");
    zRecord record;
    record.SetCString("stale", "1", 0);
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_WithHeaders(bytes.data(), bytes.size()), 0);
    EXPECT_EQ(layout(record, reader, bytes), "-|x;");
    EXPECT_EQ(record.AsString("X-Other", ""), "y");
    EXPECT_FALSE(record.Has("stale"));
    EXPECT_FALSE(record.Has("__nimb_mime_boundry"));
}

TEST(MultipartReader, ABoundaryInQuotationMarksIsNotFound) {
    const exact_bytes bytes(
        "Content-Type: multipart/related; boundary=\"B\"\r\n\r\n--B\r\n\r\nx\r\n--B--");
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_WithHeaders(bytes.data(), bytes.size()), -1);
}

// Whatever the sender calls them, the parts are read, and hosts see one type.
TEST(MultipartReader, AnyTypeWithABoundaryBecomesRelated) {
    for (const char* const type : {"multipart/mixed; boundary=B", "text/plain;boundary=B"}) {
        SCOPED_TRACE(type);
        const exact_bytes bytes("Content-Type: " + std::string(type) +
                                "\r\n\r\n--B\r\n\r\nx\r\n--B--");
        zRecord record;
        cMultipartReader reader(record);
        EXPECT_EQ(reader.Parse_WithHeaders(bytes.data(), bytes.size()), 0);
        EXPECT_EQ(layout(record, reader, bytes), "-|x;");
        EXPECT_EQ(record.AsString("Content-Type", ""), "multipart/related");
    }
}

// Names keep their case, and so a boundary under another name than "Content-Type" is not seen.
TEST(MultipartReader, ATypeInLowerCaseIsNotFound) {
    const exact_bytes bytes(
        "content-type: multipart/related; boundary=B\r\n\r\n--B\r\n\r\nx\r\n--B--");
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_WithHeaders(bytes.data(), bytes.size()), -1);
    EXPECT_EQ(record.AsString("content-type", ""), "multipart/related; boundary=B");
    EXPECT_EQ(cMultipartRecord(record, nullptr).SectionCount(), 0);
}

TEST(MultipartReader, NoBoundaryOrNoTypeIsAFault) {
    for (const std::string_view text :
         {"Content-Type: multipart/related\r\n\r\n--B\r\n\r\nx\r\n--B--",
          "Content-Type: \r\n\r\n--B\r\n\r\nx\r\n--B--", "\r\n--B\r\n\r\nx\r\n--B--",
          "Content-Type: multipart/related; boundary=\r\n\r\n--B\r\n\r\nx\r\n--B--"}) {
        SCOPED_TRACE(text);
        const exact_bytes bytes(text);
        zRecord record;
        cMultipartReader reader(record);
        EXPECT_EQ(reader.Parse_WithHeaders(bytes.data(), bytes.size()), -1);
    }
}

TEST(MultipartReader, BoundariesOfEveryLengthAreFoundUpTo251) {
    for (const std::size_t length : {1U, 69U, 70U, 71U, 200U, 251U, 252U, 300U}) {
        SCOPED_TRACE(length);
        const std::string boundary(length, 'b');
        const exact_bytes bytes("--" + boundary + "\r\n\r\nx\r\n--" + boundary + "--");
        zRecord record;
        cMultipartReader reader(record);
        EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), boundary.data(),
                                        static_cast<std::int32_t>(length), 0),
                  length <= 251 ? 0 : -1);
    }
}

TEST(MultipartReader, WhatMakesNoSenseIsRefused) {
    const exact_bytes bytes(k_one);
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_BodyOnly(nullptr, 10, "B", 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), nullptr, 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), 0, "B", 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), -1, "B", 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 0, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", -1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, -1), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, INT32_MAX), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", INT32_MAX, INT32_MAX), -1);
    EXPECT_EQ(reader.Parse_WithHeaders(nullptr, 0), -1);
    EXPECT_EQ(cMultipartRecord(record, nullptr).SectionCount(), 0);
}

// A call that is refused changes neither the record nor the length that section data is asked with.
TEST(MultipartReader, ARefusedCallChangesNothing) {
    const exact_bytes bytes(k_one);
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, 0), 0);
    record.SetCString("Content-Type", "kept", 0);
    EXPECT_EQ(reader.Parse_BodyOnly(nullptr, 10, "B", 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size() - 1, nullptr, 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), 0, "B", 1, 0), -1);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size() - 1, "B", 0, 0), -1);
    EXPECT_EQ(record.AsString("Content-Type", ""), "kept");
    cMultipartRecord::Section section;
    ASSERT_EQ(cMultipartRecord(record, nullptr).GetSection(section, 0), 0);
    const char* data = nullptr;
    std::int32_t size = 0;
    EXPECT_EQ(reader.GetSectionData(section, bytes.data(), bytes.size(), &data, &size), 0);
    EXPECT_EQ(size, 4);
}

// One that is taken, and fails over the body, has changed both.
TEST(MultipartReader, ABodyThatIsTooShortIsStillTheOneThatWasParsed) {
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_BodyOnly("--B", 3, "B", 1, 0), -1);
    EXPECT_EQ(record.AsString("Content-Type", ""), "multipart/related");
    cMultipartRecord message(record, nullptr);
    message.AddSection(1, nullptr);
    cMultipartRecord::Section section;
    ASSERT_EQ(message.GetSection(section, 0), 0);
    section.SetDataOffset(1);
    const char* data = nullptr;
    std::int32_t size = 0;
    EXPECT_EQ(reader.GetSectionData(section, "--B", 3, &data, &size), 0);
    EXPECT_EQ(reader.GetSectionData(section, "--B", 4, &data, &size), -1);
}

TEST(MultipartReader, APartCannotMoveItsOwnData) {
    const exact_bytes bytes("--B\r\n__data_offset: 99999\r\n__data_size: 99999\r\n\r\nx\r\n--B--");
    zRecord record;
    cMultipartReader reader(record);
    ASSERT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, 0), 0);
    EXPECT_EQ(layout(record, reader, bytes), "-|x;");
}

class SectionData : public testing::Test {
protected:
    SectionData() {
        m_reader.Parse_BodyOnly(m_bytes.data(), m_bytes.size(), "B", 1, 0);
        cMultipartRecord(m_record, nullptr).GetSection(m_section, 0);
    }
    zStatus ask(std::int32_t length) {
        return m_reader.GetSectionData(m_section, m_bytes.data(), length, &m_data, &m_size);
    }

    exact_bytes m_bytes{k_one};
    zRecord m_record;
    cMultipartReader m_reader{m_record};
    cMultipartRecord::Section m_section;
    const char* m_data = "untouched";
    std::int32_t m_size = -7;
};

TEST_F(SectionData, OfAnotherLengthIsRefusedAndChangesNothing) {
    EXPECT_EQ(ask(m_bytes.size() - 1), -1);
    EXPECT_STREQ(m_data, "untouched");
    EXPECT_EQ(m_size, -7);
}

TEST_F(SectionData, OutsideTheBufferIsNull) {
    struct place {
        std::int32_t offset;
        std::int32_t size;
    };
    const std::int32_t length = m_bytes.size();
    for (const auto& [offset, size] : {place{0, 1},
                                       {-1, 1},
                                       {1, length - 1},
                                       {length, 0},
                                       {INT32_MAX, INT32_MAX},
                                       {5, INT32_MAX},
                                       {5, -1}}) {
        SCOPED_TRACE(testing::Message() << offset << " " << size);
        m_section.SetDataOffset(offset);
        m_section.SetDataSize(size);
        EXPECT_EQ(ask(length), -1);
        EXPECT_EQ(m_data, nullptr);
        EXPECT_EQ(m_size, 0);
    }
}

TEST_F(SectionData, UpToTheLastByteButOne) {
    m_section.SetDataOffset(1);
    m_section.SetDataSize(m_bytes.size() - 2);
    EXPECT_EQ(ask(m_bytes.size()), 0);
    EXPECT_EQ(m_data, m_bytes.data() + 1);
    EXPECT_EQ(m_size, m_bytes.size() - 2);
}

TEST_F(SectionData, OfNoSectionIsNull) {
    m_section = {};
    EXPECT_EQ(ask(m_bytes.size()), -1);
    EXPECT_EQ(m_data, nullptr);
}

TEST(MultipartReader, AThousandPartsAreRead) {
    std::string body;
    for (int i = 0; i < 1000; ++i) body += "--B\r\nX: " + std::to_string(i) + "\r\n\r\nd\r\n";
    const exact_bytes bytes(body + "--B--");
    zRecord record;
    cMultipartReader reader(record);
    EXPECT_EQ(reader.Parse_BodyOnly(bytes.data(), bytes.size(), "B", 1, 0), 0);
    const cMultipartRecord message(record, nullptr);
    ASSERT_EQ(message.SectionCount(), 1000);
    EXPECT_EQ(message.GetSectionRecord(999)->AsString("X", ""), "999");
}

}  // namespace
