// request_check.h - the strict opinion on a request, for servers that answer bad ones. No clock, no
// I/O.
//
// The server itself takes whatever looks like a request. Where somebody else reads the same bytes
// by other rules, a proxy for instance, two opinions about where a request ends can be abused; so
// whatever could be read in two ways is refused here.
#pragma once

#include <cstdint>
#include <string_view>

namespace pennywort {

// The status to refuse a request of no known method with: 501 if its front could be a method, 400
// if not.
std::int32_t refusal_of_method(std::string_view request);

// The status to refuse a request with whose head, blank line included, is `head`: 400, 501, or 0
// for none. `content_length` is what the server takes for the body's length.
std::int32_t refusal_of_head(std::string_view head, std::int32_t content_length);

}  // namespace pennywort
