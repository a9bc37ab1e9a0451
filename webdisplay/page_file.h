// page_file.h - the bytes of a file that a page of this machine plays.
#pragma once

#include <string>

namespace pennywort::webdisplay {

// Of a "file:" URL. Empty where there is no plain file, or where it is empty, cannot be read or is
// longer than k_max_page_file_bytes.
std::string bytes_of_file_url(const std::string& url);

}  // namespace pennywort::webdisplay
