// character_references.h - characters beyond ASCII as references that a parser of XML turns back.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::xmlrpc {

// `xml` is a document in UTF-8 whose names are ASCII: a reference can stand in texts and attributes
// only. What is not valid becomes U+FFFD.
std::string with_character_references(std::string_view xml);

}  // namespace pennywort::xmlrpc
