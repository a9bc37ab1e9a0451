// record_test.cpp - the view of a record as a message of several parts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "multipart.h"

namespace {

class MultipartRecord : public testing::Test {
protected:
    zRecord m_record;
    cMultipartRecord m_message{m_record, nullptr};
    cMultipartRecord::Section m_section;
};

// Hosts hold these objects by value, and were compiled for this layout.
TEST(MultipartLayout, HasItsFieldsInOrder) {
    EXPECT_EQ(sizeof(cMultipartRecord), sizeof(void*));
    EXPECT_EQ(sizeof(cMultipartRecord::Section), sizeof(void*));
    EXPECT_EQ(sizeof(cMultipartWriter), sizeof(void*));
    EXPECT_EQ(sizeof(cMultipartReader), 2 * sizeof(void*));
    zRecord record;
    cMultipartReader reader(record);
    const char body[] = "--B\r\n\r\nx\r\n--B--";
    reader.Parse_BodyOnly(body, sizeof body - 1, "B", 1, 0);
    std::int32_t length = 0;
    std::memcpy(&length, &reader, sizeof length);
    EXPECT_EQ(length, std::int32_t{sizeof body - 1});
    const void* at = nullptr;
    std::memcpy(&at, reinterpret_cast<const char*>(&reader) + sizeof(void*), sizeof at);
    EXPECT_EQ(at, &record);
}

TEST_F(MultipartRecord, ANewOneHasTheDefaultBoundaryAndNoType) {
    EXPECT_EQ(m_message.GetBoundary(), "MimeBoundary_8923gr836bidfb3i");
    EXPECT_EQ(m_message.GetContentType("none"), "none");
    EXPECT_EQ(m_record.VariableCount(), 0U);
}

TEST_F(MultipartRecord, TheConstructorSetsTheTypeItIsGiven) {
    const cMultipartRecord typed(m_record, "multipart/mixed");
    EXPECT_EQ(m_record.AsString("Content-Type", ""), "multipart/mixed");
}

TEST_F(MultipartRecord, ItsTextsStandUnderTheirNames) {
    m_message.SetContentType("a/b");
    m_message.SetBoundary("xyz");
    m_message.SetHeader("X-Long", "abcdef", 3);
    EXPECT_EQ(m_record.AsString("Content-Type", ""), "a/b");
    EXPECT_EQ(m_record.AsString("__nimb_mime_boundry", ""), "xyz");
    EXPECT_EQ(m_message.GetBoundary(), "xyz");
    EXPECT_EQ(m_message.GetHeader("X-Long", ""), "abc");
    EXPECT_EQ(m_message.GetHeader("X-Other", "other"), "other");
}

TEST_F(MultipartRecord, ASectionWithoutATypeHasNoHeaders) {
    EXPECT_EQ(m_message.AddSection(0, nullptr), 0);
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    EXPECT_EQ(m_section.HeaderCount(), 0);
    EXPECT_EQ(m_message.GetSectionRecord(0)->VariableCount(), 2U);
    EXPECT_STREQ(m_message.GetSectionRecord(0)->VariableName(0), "__data_offset");
    EXPECT_STREQ(m_message.GetSectionRecord(0)->VariableName(1), "__data_size");
}

TEST_F(MultipartRecord, ASectionsTypeIsItsFirstHeader) {
    EXPECT_EQ(m_message.AddSection(10, "text/xml"), 0);
    EXPECT_EQ(m_message.AddSection(11, nullptr), 1);
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    zString name;
    zString value;
    EXPECT_EQ(m_section.HeaderByIndex(0, name, value), 0);
    EXPECT_STREQ(name.CString(), "Content-Type");
    EXPECT_STREQ(value.CString(), "text/xml");
    EXPECT_EQ(m_section.GetDataSize(), 10);
    EXPECT_EQ(m_section.GetDataOffset(), 0);
}

TEST_F(MultipartRecord, HeadersKeepTheirOrderAndTellTheirSizes) {
    m_message.AddSection(0, nullptr);
    m_message.AddSectionHeader(0, "One", "1");
    m_message.AddSectionHeader(0, "Three", "");
    m_message.AddSectionHeader(7, "Nowhere", "x");
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    EXPECT_EQ(m_section.AddHeader("Two", "22"), 0);
    ASSERT_EQ(m_section.HeaderCount(), 3);
    std::int32_t name = -7;
    std::int32_t value = -7;
    EXPECT_EQ(m_section.HeaderSizeByIndex(2, &name, &value), 0);
    EXPECT_EQ(name, 3);
    EXPECT_EQ(value, 2);
    EXPECT_EQ(m_section.HeaderSizeByIndex(2, nullptr, nullptr), 0);
    EXPECT_EQ(m_section.HeaderByName("Two", ""), "22");
    EXPECT_EQ(m_section.HeaderByName("Four", "4"), "4");
}

TEST_F(MultipartRecord, AHeaderOutOfRangeIsEmptyAndMinusOne) {
    m_message.AddSection(5, "a/b");
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    for (const std::int32_t index : {-1, 1, 2, INT32_MAX, INT32_MIN}) {
        SCOPED_TRACE(index);
        zString name("x");
        zString value("x");
        EXPECT_EQ(m_section.HeaderByIndex(index, name, value), -1);
        EXPECT_TRUE(name.Empty());
        EXPECT_TRUE(value.Empty());
        std::int32_t name_length = -7;
        std::int32_t value_length = -7;
        EXPECT_EQ(m_section.HeaderSizeByIndex(index, &name_length, &value_length), -1);
        EXPECT_EQ(name_length, 0);
        EXPECT_EQ(value_length, 0);
    }
}

TEST_F(MultipartRecord, AnUnsetSectionRefusesEverything) {
    zString name("x");
    zString value("x");
    EXPECT_EQ(m_section.AddHeader("a", "b"), -1);
    EXPECT_EQ(m_section.GetDataOffset(), 0);
    EXPECT_EQ(m_section.GetDataSize(), 0);
    EXPECT_EQ(m_section.HeaderCount(), -1);
    EXPECT_EQ(m_section.HeaderByIndex(0, name, value), -1);
    EXPECT_TRUE(name.Empty());
    EXPECT_EQ(m_section.HeaderByName("a", "otherwise"), "otherwise");
    EXPECT_EQ(m_section.HeaderByName("a", nullptr), "");
    m_section.SetDataOffset(1);
    m_section.SetDataSize(1);
    EXPECT_EQ(m_section.GetDataSize(), 0);
}

TEST_F(MultipartRecord, ASectionThatIsNotThereUnsetsTheAnswer) {
    m_message.AddSection(5, nullptr);
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    for (const std::int32_t index : {m_message.SectionCount(), -1, INT32_MIN}) {
        EXPECT_EQ(m_message.GetSection(m_section, index), -1);
        EXPECT_EQ(m_section.HeaderCount(), -1);
        EXPECT_EQ(m_message.GetSectionRecord(index), nullptr);
    }
}

TEST_F(MultipartRecord, ASectionIsFoundByAHeadersExactValue) {
    m_message.AddSection(1, nullptr);
    m_message.AddSection(2, nullptr);
    m_message.AddSection(3, nullptr);
    m_message.AddSectionHeader(0, "Content-ID", "<A>");
    m_message.AddSectionHeader(1, "Content-ID", "<a>");
    m_message.AddSectionHeader(2, "Content-ID", "<a>");
    EXPECT_EQ(m_message.FindSectionBySectionHeaderValue(m_section, "Content-ID", "<a>"), 0);
    EXPECT_EQ(m_section.GetDataSize(), 2);
    EXPECT_EQ(m_message.FindSectionBySectionHeaderValue(m_section, "Content-ID", "<b>"), -1);
    EXPECT_EQ(m_section.HeaderCount(), -1);
}

TEST_F(MultipartRecord, AnEmptyValueFindsNothing) {
    m_message.AddSection(1, nullptr);
    m_message.AddSectionHeader(0, "Content-ID", "");
    EXPECT_EQ(m_message.FindSectionBySectionHeaderValue(m_section, "Content-ID", ""), -1);
    EXPECT_EQ(m_message.FindSectionBySectionHeaderValue(m_section, "Content-ID", nullptr), -1);
}

TEST_F(MultipartRecord, ACopyOfASectionRefersToTheSameOne) {
    m_message.AddSection(1, nullptr);
    ASSERT_EQ(m_message.GetSection(m_section, 0), 0);
    cMultipartRecord::Section copy = m_section;
    copy.SetDataSize(99);
    copy.SetDataOffset(7);
    EXPECT_EQ(m_section.GetDataSize(), 99);
    EXPECT_EQ(m_section.GetDataOffset(), 7);
}

}  // namespace
