// multipart_reader.cpp - cMultipartReader of include/multipart.h. No clock, no I/O.
#include <string>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "multipart.h"
#include "utils.h"

using pennywort::k_failed;
using pennywort::k_ok;

namespace {

constexpr char k_related[] = "multipart/related";

// What is left of the body to read, which begins behind a delimiter. Lengths are signed: each step
// takes off what it needs and looks whether that was there.
struct rest_of_body {
    const char* at;
    std::int64_t length;
};

enum class step { part, end, fault };

class body_reader {
public:
    body_reader(zRecord& record, const char* buffer, const std::string& delimiter)
        : m_record(record),
          m_message(record, nullptr),
          m_buffer(buffer),
          m_delimiter(delimiter),
          m_search(delimiter.data(), static_cast<std::int32_t>(delimiter.size())) {}

    zStatus read(rest_of_body rest) {
        step last = rest.length < 2 ? step::end : step::part;
        while (last == step::part) last = read_part(rest);
        return last == step::end ? k_ok : k_failed;
    }

private:
    step read_part(rest_of_body& rest) {
        if (rest.at[0] == '-' || rest.at[1] == '-') return step::end;
        const std::int64_t behind_line_end = rest.length - 2;
        if (behind_line_end < 1) return step::fault;
        zRecord* const section =
            m_record.Child(static_cast<std::uint32_t>(m_message.AddSection(0, nullptr)));
        if (section == nullptr) return step::fault;
        const std::int64_t headers =
            cUtils::HeaderParse(rest.at + 2, static_cast<std::int32_t>(behind_line_end), *section);
        forget_claimed_place();
        const std::int64_t available = behind_line_end - headers - 2;
        if (available < 1) return step::fault;
        return read_data(rest, {rest.at + 4 + headers, available});
    }

    cMultipartRecord::Section last_section() const {
        cMultipartRecord::Section section;
        m_message.GetSection(section, m_message.SectionCount() - 1);
        return section;
    }

    // A peer may send headers that are called as the offset and the size are. Without this, a part
    // that never ends would lie where its sender says.
    void forget_claimed_place() {
        cMultipartRecord::Section section = last_section();
        section.SetDataOffset(0);
        section.SetDataSize(0);
    }

    step read_data(rest_of_body& rest, rest_of_body data) {
        const std::int32_t found = m_search.FindIn(data.at, static_cast<std::int32_t>(data.length));
        if (found < 0) return step::fault;
        cMultipartRecord::Section section = last_section();
        section.SetDataOffset(static_cast<std::int32_t>(data.at - m_buffer));
        section.SetDataSize(found);
        const std::int64_t used = found + static_cast<std::int64_t>(m_delimiter.size());
        rest = {data.at + used, data.length - used};
        if (rest.length < 1) return step::fault;
        return rest.length < 2 ? step::end : step::part;
    }

    zRecord& m_record;
    cMultipartRecord m_message;
    const char* m_buffer;
    const std::string& m_delimiter;
    cBoyerMoore m_search;
};

}  // namespace

cMultipartReader::cMultipartReader(zRecord& record) : m_record(&record) {}

// What a sender puts into a message is memory that its reader takes: that it runs out is traced,
// and a fault of the message like any other.
zStatus cMultipartReader::Parse_WithHeaders(const char* buffer, std::int32_t length) {
    m_record->MakeEmpty();
    m_parsed_length = length;
    return pennywort::run::guarded_or(k_failed, "cMultipartReader", "a message",
                                      [&] { return parse_with_headers(buffer, length); });
}

zStatus cMultipartReader::parse_with_headers(const char* buffer, std::int32_t length) {
    cMultipartRecord message(*m_record, k_related);
    const std::int32_t headers = cUtils::HeaderParse(buffer, length, *m_record);
    const std::string type = message.GetContentType("");
    if (type.empty()) return k_failed;
    const char* boundary = nullptr;
    std::int32_t boundary_length = 0;
    const zStatus status =
        cUtils::HeaderEntry_FindByName(type.c_str(), "boundary", &boundary, &boundary_length);
    if (status != k_ok || length - headers < 3) return k_failed;
    return Parse_BodyOnly(buffer, length, boundary, boundary_length, headers + 2);
}

zStatus cMultipartReader::Parse_BodyOnly(const char* buffer, std::int32_t length,
                                         const char* boundary, std::int32_t boundaryLength,
                                         std::int32_t bodyOffset) {
    if (buffer == nullptr || boundary == nullptr) return k_failed;
    if (length <= 0 || boundaryLength <= 0 || bodyOffset < 0) return k_failed;
    m_parsed_length = length;
    return pennywort::run::guarded_or(k_failed, "cMultipartReader", "a body", [&] {
        cMultipartRecord message(*m_record, k_related);
        const std::int64_t skipped = std::int64_t{boundaryLength} + bodyOffset + 2;
        if (length - skipped < 1) return k_failed;
        const std::string delimiter =
            "\r\n--" + std::string(boundary, static_cast<std::size_t>(boundaryLength));
        return body_reader(*m_record, buffer, delimiter).read({buffer + skipped, length - skipped});
    });
}

zStatus cMultipartReader::GetSectionData(cMultipartRecord::Section& section, const char* buffer,
                                         std::int32_t length, const char** data,
                                         std::int32_t* size) const {
    if (length != m_parsed_length) return k_failed;
    const std::int64_t offset = section.GetDataOffset();
    const std::int64_t count = section.GetDataSize();
    const bool is_within = offset > 0 && count >= 0 && offset + count < length;
    *data = is_within ? buffer + offset : nullptr;
    *size = is_within ? static_cast<std::int32_t>(count) : 0;
    return is_within ? k_ok : k_failed;
}
