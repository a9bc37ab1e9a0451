// host/system/picture_memory_win.cpp - Windows half of host/system/picture_memory.h. Linux half:
// host/system/picture_memory_linux.cpp.
#include "host/system/picture_memory.h"

namespace pennywort::host {

// Shared memory is the page file's, which the system makes larger as it needs.
picture_memory find_picture_memory() { return {}; }

std::string picture_memory_fault(const picture_memory&, std::uintmax_t) { return {}; }

}  // namespace pennywort::host
