// host/system/file_sync.h - brings what was written to its disk. The system's half is
// file_sync_linux.cpp or file_sync_win.cpp.
#pragma once

#include <cstdio>
#include <system_error>

namespace pennywort::host {

// Returns why the disk does not have it: some file systems find out only then that there is no
// room, or no server any more. A pipe or a device, which has no disk, is no failure.
std::error_code sync_to_disk(std::FILE* stream);

}  // namespace pennywort::host
