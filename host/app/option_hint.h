// host/app/option_hint.h - what a user may have meant by an option that there is not.
#pragma once

#include <string>
#include <vector>

namespace pennywort::host {

// The one of `known` that is meant by `given`, both without dashes: one that other programs call
// so, or one that is a slip of the finger away. Empty where it could be anything.
std::string meant_option(const std::string& given, const std::vector<std::string>& known);

// The one of `words` of which `given` is another spelling: in other letters' case, or one slip of
// the finger away. Empty where it is one of them, or anything else.
std::string meant_word(const std::string& given, const std::vector<std::string>& words);

}  // namespace pennywort::host
