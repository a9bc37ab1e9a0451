// host/app/option_values.h - what the commands' options have in common: numbers, sizes, pages,
// texts in files.
#pragma once

#include <string>
#include <vector>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// Each of these returns what is wrong with the option, in one line; an empty text if nothing is.

// "1280x720", and a frame rate.
std::string take_size(const std::string& text, frame_format& format);
std::string take_rate(const std::string& text, frame_format& format);
// What the user calls pages becomes their URLs. A page that is a file has to be there.
std::string take_pages(const std::vector<std::string>& pages, std::vector<std::string>& urls);

// The whole of a file that an option names. False where it cannot be read, or is too long for a
// text.
bool read_text_file(const std::string& path, std::string& text);

}  // namespace pennywort::host
