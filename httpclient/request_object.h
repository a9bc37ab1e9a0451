// request_object.h - what a request asks its server for. No I/O.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::httpclient {

// Path and query with blanks, control bytes and bytes beyond ASCII percent-coded, the same on every
// system; "%" stays as it is, since the caller has coded what had to be.
std::string escaped_object(std::string_view object);

}  // namespace pennywort::httpclient
