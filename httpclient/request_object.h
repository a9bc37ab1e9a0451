// request_object.h - whom a request asks, and for what. No I/O.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::httpclient {

// Whether it can be a host of a URL. What cannot must reach no service: each would make something
// else of it.
bool is_host(std::string_view host);

// Path and query with blanks, control bytes and bytes beyond ASCII percent-coded, the same on every
// system; "%" stays as it is, since the caller has coded what had to be.
std::string escaped_object(std::string_view object);

}  // namespace pennywort::httpclient
