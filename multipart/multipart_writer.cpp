// multipart_writer.cpp - cMultipartWriter of include/multipart.h. No clock, no I/O.
#include <limits>
#include <string>
#include <utility>

#include "multipart.h"

namespace {

constexpr char k_media_type[] = "multipart/related";
constexpr char k_line_end[] = "\r\n";

// A text that could not be made leaves `out` as it was.
const char* replaced(zString& out, std::string text) {
    out = std::move(text);
    return out.CString();
}

std::int64_t length_of_headers(const cMultipartRecord::Section& section) {
    std::int64_t length = 0;
    for (std::int32_t i = 0; i < section.HeaderCount(); ++i) {
        std::int32_t name = 0;
        std::int32_t value = 0;
        section.HeaderSizeByIndex(i, &name, &value);
        length += std::int64_t{name} + value + 4;
    }
    return length;
}

}  // namespace

cMultipartWriter::cMultipartWriter(zRecord& record) : m_record(&record) {}

const char* cMultipartWriter::GetHttpHeader(zString& out, bool endHeaders) {
    const cMultipartRecord message(*m_record, k_media_type);
    std::string text = "MIME-Version: 1.0\r\nContent-Type: " + message.GetContentType("") +
                       ";boundary=" + message.GetBoundary() +
                       "\r\nContent-Length: " + std::to_string(ContentLength()) + k_line_end;
    if (endHeaders) text += k_line_end;
    return replaced(out, std::move(text));
}

const char* cMultipartWriter::GetSectionHeader(zString& out, std::int32_t index) {
    const cMultipartRecord message(*m_record, k_media_type);
    std::string text = "--" + message.GetBoundary() + k_line_end;
    cMultipartRecord::Section section;
    message.GetSection(section, index);
    zString name;
    zString value;
    for (std::int32_t i = 0; section.HeaderByIndex(i, name, value) == 0; ++i) {
        text.append(name.View()).append(": ").append(value.View()).append(k_line_end);
    }
    text += k_line_end;
    return replaced(out, std::move(text));
}

const char* cMultipartWriter::GetSectionFooter() const { return k_line_end; }

const char* cMultipartWriter::GetMessageFooter(zString& out) {
    const cMultipartRecord message(*m_record, k_media_type);
    return replaced(out, "--" + message.GetBoundary() + "--");
}

std::int32_t cMultipartWriter::ContentLength() {
    const cMultipartRecord message(*m_record, k_media_type);
    const auto boundary = static_cast<std::int64_t>(message.GetBoundary().size());
    std::int64_t total = boundary + 6;
    for (std::int32_t i = 0; i < message.SectionCount(); ++i) {
        cMultipartRecord::Section section;
        if (message.GetSection(section, i) != 0) continue;
        total += boundary + 4 + (i > 0 ? 2 : 0);
        total += length_of_headers(section) + section.GetDataSize() + 2;
    }
    constexpr std::int64_t k_most = std::numeric_limits<std::int32_t>::max();
    return total > k_most ? -1 : static_cast<std::int32_t>(total);
}
