// writer_test.cpp - the text around the parts of a message, and its length.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "multipart.h"

namespace {

class MultipartWriter : public testing::Test {
protected:
    zRecord m_record;
    cMultipartRecord m_message{m_record, nullptr};
    cMultipartWriter m_writer{m_record};
    zString m_out{"stale"};
};

TEST_F(MultipartWriter, CountsOneSectionOfThreeBytes) {
    m_message.AddSection(3, "text/xml");
    EXPECT_EQ(m_writer.ContentLength(), 97);
    EXPECT_EQ(std::string(m_writer.GetSectionHeader(m_out, 0)),
              "--MimeBoundary_8923gr836bidfb3i\r\nContent-Type: text/xml\r\n\r\n");
    EXPECT_EQ(m_out.Length(), 59U);
    EXPECT_STREQ(m_writer.GetSectionFooter(), "\r\n");
    EXPECT_STREQ(m_writer.GetMessageFooter(m_out), "--MimeBoundary_8923gr836bidfb3i--");
    EXPECT_EQ(m_out.Length(), 33U);
}

TEST_F(MultipartWriter, AMessageWithoutSectionsCountsTwoMoreThanItHas) {
    m_message.SetBoundary("B");
    EXPECT_EQ(m_writer.ContentLength(), 7);
    m_writer.GetMessageFooter(m_out);
    EXPECT_EQ(m_out.Length(), 5U);
}

TEST_F(MultipartWriter, TheMessagesHeaderHasTypeBoundaryAndLength) {
    m_message.SetBoundary("B");
    m_message.AddSection(1, nullptr);
    const std::string open =
        "MIME-Version: 1.0\r\nContent-Type: multipart/related;boundary=B\r\nContent-Length: 15\r\n";
    EXPECT_EQ(std::string(m_writer.GetHttpHeader(m_out, false)), open);
    EXPECT_EQ(std::string(m_writer.GetHttpHeader(m_out, true)), open + "\r\n");
}

TEST_F(MultipartWriter, AMissingSectionHasItsDelimiterAndABlankLine) {
    m_message.SetBoundary("B");
    for (const std::int32_t index : {0, -1, 5, INT32_MAX}) {
        EXPECT_EQ(std::string(m_writer.GetSectionHeader(m_out, index)), "--B\r\n\r\n");
    }
}

TEST_F(MultipartWriter, EachCallMakesTheMessageRelated) {
    const auto expect_related = [this](auto call) {
        m_message.SetContentType("multipart/mixed");
        call();
        EXPECT_EQ(m_message.GetContentType(""), "multipart/related");
    };
    expect_related([this] { m_writer.GetHttpHeader(m_out, true); });
    expect_related([this] { m_writer.GetSectionHeader(m_out, 0); });
    expect_related([this] { m_writer.GetMessageFooter(m_out); });
    expect_related([this] { m_writer.ContentLength(); });
    m_message.SetContentType("multipart/mixed");
    m_writer.GetSectionFooter();
    EXPECT_EQ(m_message.GetContentType(""), "multipart/mixed");
}

TEST_F(MultipartWriter, AnEmptyBoundaryStaysEmpty) {
    m_message.SetBoundary("");
    EXPECT_STREQ(m_writer.GetMessageFooter(m_out), "----");
    EXPECT_EQ(m_writer.ContentLength(), 6);
}

TEST_F(MultipartWriter, ALengthThatDoesNotFitIsMinusOne) {
    m_message.SetBoundary("B");
    m_message.AddSection(INT32_MAX, nullptr);
    EXPECT_EQ(m_writer.ContentLength(), -1);
    EXPECT_TRUE(std::string(m_writer.GetHttpHeader(m_out, false)).ends_with("Length: -1\r\n"));
    cMultipartRecord::Section section;
    m_message.GetSection(section, 0);
    section.SetDataSize(INT32_MAX - 14);
    EXPECT_EQ(m_writer.ContentLength(), INT32_MAX);
    section.SetDataSize(INT32_MAX - 13);
    EXPECT_EQ(m_writer.ContentLength(), -1);
}

}  // namespace
