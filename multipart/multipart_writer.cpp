// multipart_writer.cpp - cMultipartWriter of include/multipart.h. No clock, no I/O.
#include <limits>

#include "multipart.h"

namespace {

constexpr char k_related[] = "multipart/related";
constexpr char k_line_end[] = "\r\n";

void append(zString& out, const std::string& text) {
    out.AddToEnd(text.data(), static_cast<std::uint32_t>(text.size()));
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
    const cMultipartRecord message(*m_record, k_related);
    zString length;
    length.sprintf("\r\nContent-Length: %ld\r\n", static_cast<long>(ContentLength()));
    out = "MIME-Version: 1.0\r\nContent-Type: ";
    append(out, message.GetContentType("") + ";boundary=" + message.GetBoundary());
    out += length;
    if (endHeaders) out += k_line_end;
    return out.CString();
}

const char* cMultipartWriter::GetSectionHeader(zString& out, std::int32_t index) {
    const cMultipartRecord message(*m_record, k_related);
    out = "--";
    append(out, message.GetBoundary() + k_line_end);
    cMultipartRecord::Section section;
    message.GetSection(section, index);
    zString name;
    zString value;
    for (std::int32_t i = 0; section.HeaderByIndex(i, name, value) == 0; ++i) {
        out += name;
        out += ": ";
        out += value;
        out += k_line_end;
    }
    out += k_line_end;
    return out.CString();
}

const char* cMultipartWriter::GetSectionFooter() const { return k_line_end; }

const char* cMultipartWriter::GetMessageFooter(zString& out) {
    const cMultipartRecord message(*m_record, k_related);
    out = "--";
    append(out, message.GetBoundary() + "--");
    return out.CString();
}

std::int32_t cMultipartWriter::ContentLength() {
    const cMultipartRecord message(*m_record, k_related);
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
