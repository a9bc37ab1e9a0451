// host/system/file_sync_linux.cpp - Linux half of host/system/file_sync.h. Windows half:
// host/system/file_sync_win.cpp.
#include <unistd.h>

#include <cerrno>

#include "host/system/file_sync.h"

namespace pennywort::host {

std::error_code sync_to_disk(std::FILE* stream) {
    int result = 0;
    do {
        result = ::fsync(::fileno(stream));
    } while (result != 0 && errno == EINTR);
    // These two codes mean that no disk holds the file.
    if (result == 0 || errno == EINVAL || errno == EROFS) return {};
    return {errno, std::generic_category()};
}

}  // namespace pennywort::host
