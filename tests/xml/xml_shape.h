// xml_shape.h - a tree as one line, for tests to compare: name{attribute=value}'text'(children).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "loam/record.h"
#include "loam/xml.h"

namespace pennywort::tests {

inline std::string text_of(const zRecord& record, std::uint64_t id) {
    std::uint32_t length = 0;
    const char* const text = record.AsText(id, &length);
    return text == nullptr ? std::string() : std::string(text, length);
}

inline std::string attributes_of(const zRecord& record) {
    std::string shape;
    for (std::uint32_t i = 0; i < record.VariableCount(); ++i) {
        if (record.VariableID(i) != 0) continue;
        const char* const name = record.VariableName(i);
        shape += std::string(shape.empty() ? "" : " ") + name + "=" + record.AsString(name, "?");
    }
    return shape.empty() ? shape : "{" + shape + "}";
}

// For trees that are not deep.
inline std::string xml_shape(const zRecord& record) {
    std::string shape = text_of(record, zXML::k_name) + attributes_of(record);
    if (record.Has(zXML::k_text)) shape += "'" + text_of(record, zXML::k_text) + "'";
    if (record.ChildCount() == 0) return shape;
    shape += "(";
    for (std::uint32_t i = 0; i < record.ChildCount(); ++i) {
        shape += (i == 0 ? "" : " ") + xml_shape(*record.Child(i));
    }
    return shape + ")";
}

inline zStatus parse_text(zRecord& out, std::string_view text) {
    return zXML::ParseBuffer(255, &out, text.data(), static_cast<std::int32_t>(text.size()));
}

// What a document becomes: its shape, or its status.
inline std::string parsed(std::string_view text) {
    zRecord record;
    const zStatus status = parse_text(record, text);
    return status == 0 ? xml_shape(record) : std::to_string(status);
}

inline bool is_empty(const zRecord& record) {
    return record.VariableCount() == 0 && record.ChildCount() == 0;
}

inline std::string buffer_text(const zBuffer& buffer) { return {buffer.Data(), buffer.Length()}; }

}  // namespace pennywort::tests
