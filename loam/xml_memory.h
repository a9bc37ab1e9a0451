// loam/xml_memory.h - the memory of expat's parsers is C++ memory: a host that replaces operator
// new bounds and counts it too.
#pragma once

#include <expat.h>

namespace loam {

const XML_Memory_Handling_Suite& xml_memory();

}  // namespace loam
