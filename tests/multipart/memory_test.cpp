// memory_test.cpp - messages taken apart while the memory runs out at any moment.
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>

#include "multipart.h"
#include "tests/support/failing_memory.h"
#include "utils.h"

namespace {

// The parts that are there afterwards are those of the message, from the first on.
TEST(MultipartMemory, RunsOutAtAnyPlaceOfTheReader) {
    std::string text =
        "Content-Type: multipart/related; "
        "boundary=a-boundary-that-no-string-holds-in-itself\r\n\r\n";
    for (int i = 0; i < 3; ++i) {
        text += "--a-boundary-that-no-string-holds-in-itself\r\nA-Header-With-A-Long-Name: " +
                std::string(60, 'v') + "\r\n\r\ndata\r\n";
    }
    text += "--a-boundary-that-no-string-holds-in-itself--";
    zRecord record;
    cMultipartReader reader(record);
    zStatus status = 0;
    bool has_thrown = false;
    const int failures = with_each_allocation_failing(
        [&] {
            has_thrown = false;
            try {
                status =
                    reader.Parse_WithHeaders(text.data(), static_cast<std::int32_t>(text.size()));
            } catch (const std::bad_alloc&) {
                has_thrown = true;
            }
        },
        [&] {
            EXPECT_FALSE(has_thrown);
            EXPECT_TRUE(status == 0 || status == -1);
            EXPECT_LE(record.ChildCount(), 3u);
            EXPECT_TRUE(status != 0 || record.ChildCount() == 3);
        });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(status, 0);
}

// What is there afterwards is what was there before, or that and a whole section.
TEST(MultipartMemory, RunsOutAtAnyPlaceOfANewSection) {
    zRecord record;
    cMultipartRecord message(record, "multipart/related; with=words-beyond-the-string-itself");
    const std::string type(60, 't');
    std::int32_t index = 0;
    std::int32_t count_before = 0;
    bool has_thrown = false;
    const int failures = with_each_allocation_failing(
        [&] {
            has_thrown = false;
            count_before = message.SectionCount();
            try {
                index = message.AddSection(7, type.c_str());
            } catch (const std::bad_alloc&) {
                has_thrown = true;
            }
        },
        [&] {
            EXPECT_FALSE(has_thrown);
            EXPECT_TRUE(index == -1 || index == count_before);
            EXPECT_EQ(message.SectionCount(), count_before + (index == -1 ? 0 : 1));
        });
    EXPECT_GT(failures, 3);
    cMultipartRecord::Section section;
    ASSERT_EQ(message.GetSection(section, index), 0);
    EXPECT_EQ(section.GetDataSize(), 7);
    EXPECT_EQ(section.HeaderByName("Content-Type", ""), type);
}

// Each replaces a text and has no status: without memory it throws, and the text is as it was, or
// it is whole.
template <typename function>
void throws_or_makes(const std::string& wanted, function make) {
    const std::string before(50, 'b');
    zString out(before);
    const char* made = nullptr;
    bool has_thrown = false;
    const int failures = with_each_allocation_failing(
        [&] {
            has_thrown = false;
            try {
                made = make(out);
            } catch (const std::bad_alloc&) {
                has_thrown = true;
            }
        },
        [&] {
            EXPECT_EQ(out.View(), has_thrown ? before : wanted);
            EXPECT_TRUE(has_thrown || made == out.CString());
            out = before;
        });
    EXPECT_GT(failures, 0);
    EXPECT_FALSE(has_thrown);
}

TEST(MultipartMemory, RunsOutAtAnyPlaceOfTheXopNames) {
    const std::string name(200, 'n');
    throws_or_makes("cid:" + name,
                    [&](zString& out) { return cUtils::XOP_MakeReference(out, name.c_str()); });
    throws_or_makes("<" + name + ">", [&](zString& out) {
        return cUtils::XOP_MakeContentIDHeaderString(out, name.c_str());
    });
}

TEST(MultipartMemory, RunsOutAtAnyPlaceOfTheWriter) {
    const std::string boundary(60, 'B');
    const std::string value(60, 'v');
    zRecord record;
    cMultipartRecord message(record, nullptr);
    message.SetBoundary(boundary.c_str());
    message.AddSection(7, nullptr);
    message.AddSectionHeader(0, "A-Header-With-A-Long-Name", value.c_str());
    cMultipartWriter writer(record);
    const std::string header =
        "--" + boundary + "\r\nA-Header-With-A-Long-Name: " + value + "\r\n\r\n";
    const std::string footer = "--" + boundary + "--";
    const std::size_t length = header.size() + 7 + 2 + footer.size();
    throws_or_makes(header, [&](zString& out) { return writer.GetSectionHeader(out, 0); });
    throws_or_makes(footer, [&](zString& out) { return writer.GetMessageFooter(out); });
    throws_or_makes("MIME-Version: 1.0\r\nContent-Type: multipart/related;boundary=" + boundary +
                        "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n",
                    [&](zString& out) { return writer.GetHttpHeader(out, true); });
}

}  // namespace
