// host/system/output_reader_win.cpp - Windows half of host/system/output_reader.h. Linux half:
// host/system/output_reader_linux.cpp.
#include "host/system/output_reader.h"

#include <io.h>
#include <windows.h>

namespace pennywort::host {

namespace {

// A pipe of messages would take an empty write for one.
bool is_pipe_of_bytes(HANDLE output) {
    DWORD flags = 0;
    if (GetFileType(output) != FILE_TYPE_PIPE) return false;
    if (!GetNamedPipeInfo(output, &flags, nullptr, nullptr, nullptr)) return false;
    return (flags & PIPE_TYPE_MESSAGE) == 0;
}

}  // namespace

// Nothing is written; the system looks at the other end all the same.
bool has_reader(std::FILE* output) {
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(output)));
    if (handle == INVALID_HANDLE_VALUE || !is_pipe_of_bytes(handle)) return true;
    DWORD written = 0;
    if (WriteFile(handle, "", 0, &written, nullptr)) return true;
    const DWORD error = GetLastError();
    return error != ERROR_NO_DATA && error != ERROR_BROKEN_PIPE &&
           error != ERROR_PIPE_NOT_CONNECTED;
}

}  // namespace pennywort::host
