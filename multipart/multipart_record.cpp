// multipart_record.cpp - cMultipartRecord of include/multipart.h.
#include <cstring>
#include <memory>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "multipart.h"

using pennywort::k_failed;
using pennywort::k_ok;

namespace {

constexpr char k_content_type[] = "Content-Type";
constexpr char k_boundary[] = "__nimb_mime_boundry";
constexpr char k_default_boundary[] = "MimeBoundary_8923gr836bidfb3i";
constexpr char k_data_offset[] = "__data_offset";
constexpr char k_data_size[] = "__data_size";
// In front of a section's headers.
constexpr std::int32_t k_data_variables = 2;

std::string text_or_empty(const char* text) { return text == nullptr ? "" : text; }

// The name of a section's header, null when there is none of that number.
const char* header_name(const zRecord* section, std::int32_t index) {
    if (section == nullptr || index < 0) return nullptr;
    const auto variable = static_cast<std::uint32_t>(index) + k_data_variables;
    return variable < section->VariableCount() ? section->VariableName(variable) : nullptr;
}

}  // namespace

zStatus cMultipartRecord::Section::AddHeader(const char* name, const char* value) {
    if (m_record == nullptr) return k_failed;
    m_record->SetCString(name, value, 0);
    return k_ok;
}

std::int32_t cMultipartRecord::Section::GetDataOffset() const {
    return m_record == nullptr ? 0 : m_record->AsInt32(k_data_offset, 0);
}

std::int32_t cMultipartRecord::Section::GetDataSize() const {
    return m_record == nullptr ? 0 : m_record->AsInt32(k_data_size, 0);
}

void cMultipartRecord::Section::SetDataOffset(std::int32_t offset) {
    if (m_record != nullptr) m_record->SetInt32(k_data_offset, offset, 0);
}

void cMultipartRecord::Section::SetDataSize(std::int32_t size) {
    if (m_record != nullptr) m_record->SetInt32(k_data_size, size, 0);
}

std::int32_t cMultipartRecord::Section::HeaderCount() const {
    if (m_record == nullptr) return k_failed;
    return static_cast<std::int32_t>(m_record->VariableCount()) - k_data_variables;
}

zStatus cMultipartRecord::Section::HeaderByIndex(std::int32_t index, zString& name,
                                                 zString& value) const {
    const char* const found = header_name(m_record, index);
    name = found;
    value = found == nullptr ? std::string() : m_record->AsString(found, "");
    return found == nullptr ? k_failed : k_ok;
}

std::string cMultipartRecord::Section::HeaderByName(const char* name, const char* otherwise) const {
    const std::string fallback = text_or_empty(otherwise);
    return m_record == nullptr ? fallback : m_record->AsString(name, fallback);
}

zStatus cMultipartRecord::Section::HeaderSizeByIndex(std::int32_t index, std::int32_t* nameLength,
                                                     std::int32_t* valueLength) const {
    const char* const name = header_name(m_record, index);
    const std::string value = name == nullptr ? std::string() : m_record->AsString(name, "");
    if (nameLength != nullptr) {
        *nameLength = name == nullptr ? 0 : static_cast<std::int32_t>(std::strlen(name));
    }
    if (valueLength != nullptr) *valueLength = static_cast<std::int32_t>(value.size());
    return name == nullptr ? k_failed : k_ok;
}

cMultipartRecord::cMultipartRecord(zRecord& record, const char* contentType) : m_record(&record) {
    if (contentType != nullptr) SetContentType(contentType);
}

void cMultipartRecord::SetContentType(const char* type) {
    m_record->SetCString(k_content_type, type, 0);
}

std::string cMultipartRecord::GetContentType(const char* otherwise) const {
    return GetHeader(k_content_type, otherwise);
}

void cMultipartRecord::SetBoundary(const char* boundary) {
    m_record->SetCString(k_boundary, boundary, 0);
}

std::string cMultipartRecord::GetBoundary() const {
    return GetHeader(k_boundary, k_default_boundary);
}

void cMultipartRecord::SetHeader(const char* name, const char* value, std::int32_t length) {
    m_record->SetText(name, value, static_cast<std::uint32_t>(length), 0);
}

std::string cMultipartRecord::GetHeader(const char* name, const char* otherwise) const {
    return m_record->AsString(name, text_or_empty(otherwise));
}

std::int32_t cMultipartRecord::AddSection(std::int32_t dataSize, const char* contentType) {
    return pennywort::run::guarded_or(k_failed, "cMultipartRecord", "a section", [&] {
        auto section = std::make_unique<zRecord>();
        section->SetInt32(k_data_offset, 0, 0);
        section->SetInt32(k_data_size, dataSize, 0);
        if (contentType != nullptr) section->SetCString(k_content_type, contentType, 0);
        if (m_record->AddChild(section.get(), zRecord::k_at_end) != k_ok) return k_failed;
        static_cast<void>(section.release());  // the record owns it now
        return SectionCount() - 1;
    });
}

void cMultipartRecord::AddSectionHeader(std::int32_t index, const char* name, const char* value) {
    if (zRecord* const section = GetSectionRecord(index)) section->SetCString(name, value, 0);
}

std::int32_t cMultipartRecord::SectionCount() const {
    return static_cast<std::int32_t>(m_record->ChildCount());
}

zStatus cMultipartRecord::GetSection(Section& out, std::int32_t index) const {
    out.m_record = GetSectionRecord(index);
    return out.m_record == nullptr ? k_failed : k_ok;
}

zRecord* cMultipartRecord::GetSectionRecord(std::int32_t index) const {
    return index < 0 ? nullptr : m_record->Child(static_cast<std::uint32_t>(index));
}

zStatus cMultipartRecord::FindSectionBySectionHeaderValue(Section& out, const char* headerName,
                                                          const char* value) const {
    const std::string wanted = text_or_empty(value);
    for (zRecordIterator each(*m_record); !each.Done() && !wanted.empty(); each.Next()) {
        if (each()->AsString(headerName, "") != wanted) continue;
        out.m_record = each();
        return k_ok;
    }
    out.m_record = nullptr;
    return k_failed;
}
