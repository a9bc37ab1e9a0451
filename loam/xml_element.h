// loam/xml_element.h - elements of a tree as loam/xml.h has them, read and made.
#pragma once

#include <memory>
#include <string_view>

#include "loam/record.h"

namespace loam {

// Empty where there is none. Valid until the record changes.
std::string_view element_name(const zRecord& element);
std::string_view element_text(const zRecord& element);

// The first of this name, or null. `parent` may be null.
zRecord* child_element(const zRecord* parent, std::string_view name);
// The child of an element that has no other; null otherwise.
zRecord* only_child(const zRecord* parent);

// These throw when memory is out, and then change nothing.
std::unique_ptr<zRecord> new_element(std::string_view name);
std::unique_ptr<zRecord> new_element(std::string_view name, std::string_view text);
// Appends a child, which it returns.
zRecord& append(zRecord& parent, std::unique_ptr<zRecord> child);
zRecord& append_element(zRecord& parent, std::string_view name);

}  // namespace loam
