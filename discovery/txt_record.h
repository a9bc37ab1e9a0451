// txt_record.h - TXT records of services, as RFC 6763 (section 6) has them: items one behind the
// other, each a byte with its length and "key=value".
//
// Threads: everything may be called from any thread at once.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::discovery {

// Whether the bytes are items to their end, and few enough for the length that DNS-SD counts in.
bool is_txt_record(std::string_view bytes);

// The key may hold printable ASCII without "=", and has to hold something.
bool is_txt_key(std::string_view key);

}  // namespace pennywort::discovery
