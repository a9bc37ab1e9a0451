// host/system/output_reader.h - whether anybody still reads what the program writes. The system's
// half is output_reader_linux.cpp or output_reader_win.cpp.
#pragma once

#include <cstdio>

namespace pennywort::host {

// False if `output` goes to a pipe whose reader has closed it. A command that waits for long
// between its lines learns that by no write of its own. Files, terminals and the null device are
// always read, and so is whatever the system tells nothing about.
bool has_reader(std::FILE* output);

}  // namespace pennywort::host
