// round_trip_test.cpp - what the writer writes, the reader reads, for generated messages.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "multipart.h"

namespace {

struct part {
    std::vector<std::pair<std::string, std::string>> headers;
    std::string data;
};

class message_maker {
public:
    explicit message_maker(unsigned seed) : m_random(seed) {}

    std::vector<part> parts() {
        std::vector<part> made(static_cast<std::size_t>(up_to(6)));
        for (part& each : made) each = one_part();
        return made;
    }

private:
    int up_to(int most) { return std::uniform_int_distribution<int>(0, most)(m_random); }

    std::string printable(int most) {
        std::string text(static_cast<std::size_t>(up_to(most)), ' ');
        for (char& c : text) c = static_cast<char>('!' + up_to(90));
        return text;
    }

    // Bytes of all kinds, with much of what a delimiter begins with.
    std::string data() {
        constexpr char k_tricky[] = "\r\n-B\0\r\n--";
        std::string bytes(static_cast<std::size_t>(up_to(300)), '\0');
        for (char& c : bytes) {
            c = up_to(1) == 0 ? k_tricky[up_to(8)] : static_cast<char>(up_to(255));
        }
        return bytes;
    }

    part one_part() {
        part made;
        const int count = up_to(4);
        for (int i = 0; i < count; ++i) {
            made.headers.emplace_back("H" + std::to_string(i), printable(40));
        }
        made.data = data();
        return made;
    }

    std::mt19937 m_random;
};

std::string written(zRecord& record, const std::vector<part>& parts) {
    cMultipartRecord message(record, nullptr);
    cMultipartWriter writer(record);
    for (const part& each : parts) {
        const std::int32_t index =
            message.AddSection(static_cast<std::int32_t>(each.data.size()), nullptr);
        for (const auto& [name, value] : each.headers) {
            message.AddSectionHeader(index, name.c_str(), value.c_str());
        }
    }
    zString text;
    std::string whole;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        whole += writer.GetSectionHeader(text, static_cast<std::int32_t>(i));
        whole += parts[i].data;
        whole += writer.GetSectionFooter();
    }
    whole += writer.GetMessageFooter(text);
    if (!parts.empty()) {
        EXPECT_EQ(writer.ContentLength(), static_cast<std::int32_t>(whole.size()));
    }
    return writer.GetHttpHeader(text, true) + whole;
}

void expect_same(const part& wanted, cMultipartReader& reader, cMultipartRecord::Section section,
                 const std::string& text) {
    const char* data = nullptr;
    std::int32_t size = 0;
    ASSERT_EQ(reader.GetSectionData(section, text.data(), static_cast<std::int32_t>(text.size()),
                                    &data, &size),
              0);
    EXPECT_EQ(std::string(data, static_cast<std::size_t>(size)), wanted.data);
    ASSERT_EQ(section.HeaderCount(), static_cast<std::int32_t>(wanted.headers.size()));
    for (std::size_t i = 0; i < wanted.headers.size(); ++i) {
        zString name;
        zString value;
        section.HeaderByIndex(static_cast<std::int32_t>(i), name, value);
        EXPECT_EQ(std::string(name.View()), wanted.headers[i].first);
        EXPECT_EQ(std::string(value.View()), wanted.headers[i].second);
    }
}

TEST(Multipart, WhatIsWrittenIsRead) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        const std::vector<part> parts = message_maker(seed).parts();
        zRecord sent;
        const std::string text = written(sent, parts);
        zRecord received;
        cMultipartReader reader(received);
        const cMultipartRecord message(received, nullptr);
        // A message without parts is its end alone, whose first dashes are taken for the opening.
        ASSERT_EQ(reader.Parse_WithHeaders(text.data(), static_cast<std::int32_t>(text.size())), 0);
        ASSERT_EQ(message.SectionCount(), static_cast<std::int32_t>(parts.size()));
        for (std::int32_t i = 0; i < message.SectionCount(); ++i) {
            cMultipartRecord::Section section;
            message.GetSection(section, i);
            expect_same(parts[static_cast<std::size_t>(i)], reader, section, text);
        }
    }
}

}  // namespace
