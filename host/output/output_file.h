// host/output/output_file.h - what the writers ask of the files that they write.
#pragma once

#include <string>

#include "host/system/outcome.h"

namespace pennywort::host {

// Whether a file of that name can be written, so that its user is told before anything begins. What
// is there stays as it is; what is no plain file, such as a named pipe or a device, is not touched.
outcome can_be_written(const std::string& path);

// Whether both names are of one file, there or not: "f.mov" and "./f.mov", a link and what it leads
// to, two links to one file.
bool are_one_file(const std::string& one, const std::string& other);

}  // namespace pennywort::host
