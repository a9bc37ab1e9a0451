// loam/xml_limits.h - the reading half of loam/xml.h with limits of one's own: tests would
// otherwise need a million elements to reach them.
#pragma once

#include <cstdint>
#include <string_view>

#include "loam/xml.h"

namespace loam {

struct xml_limits {
    std::uint32_t elements = zXML::k_most_elements;
    std::uint32_t deepest = zXML::k_deepest;
    std::uint32_t widest = zXML::k_widest;
    std::uint32_t attributes = zXML::k_most_attributes;
};

// `out` is empty before, and holds what was read so far in a fault. Throws when memory is out.
zStatus parse_xml(zRecord& out, std::string_view document, const xml_limits& limits);

}  // namespace loam
