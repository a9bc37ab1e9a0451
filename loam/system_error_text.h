// loam/system_error_text.h - what Windows says about one of its error codes; only the Windows twins
// use it, and there is no other half.
#pragma once

#include <string>

namespace loam {

// The system's own words, in the user's language, and the code: "File not found (error 2)".
std::string system_error_text(unsigned long code);

}  // namespace loam
