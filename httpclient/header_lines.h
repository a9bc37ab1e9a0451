// header_lines.h - puts the head of a response into a record. No I/O.
#pragma once

#include <string_view>

#include "loam/record.h"

namespace pennywort::httpclient {

// Sets a text variable for each line with a colon in it. The value begins two bytes behind the
// colon, where writers put one blank, and ends before the line's last byte, its CR. A later line of
// a name replaces an earlier one; with `keep_repeated` it is joined to it, whatever the case of the
// name: by a line feed for Set-Cookie, whose values hold commas, by ", " for all others.
void store_header_lines(std::string_view lines, bool keep_repeated, zRecord& headers);

}  // namespace pennywort::httpclient
