// host/system/file_sync_win.cpp - Windows half of host/system/file_sync.h. Linux half:
// host/system/file_sync_linux.cpp.
#include <io.h>
#include <windows.h>

#include "host/system/file_sync.h"

namespace pennywort::host {

std::error_code sync_to_disk(std::FILE* stream) {
    const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    // On a pipe the call would wait until its reader has taken everything.
    if (GetFileType(file) != FILE_TYPE_DISK || FlushFileBuffers(file)) return {};
    const DWORD error = GetLastError();
    return {static_cast<int>(error), std::system_category()};
}

}  // namespace pennywort::host
