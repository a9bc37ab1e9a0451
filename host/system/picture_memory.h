// host/system/picture_memory.h - where the browser's processes share their pictures. The system's
// half is picture_memory_linux.cpp or picture_memory_win.cpp.
#pragma once

#include <cstdint>
#include <string>

namespace pennywort::host {

struct picture_memory {
    // Else they are in the system's shared memory.
    bool is_in_files = false;
    // Why there is no room for any, in one line; empty if there is.
    std::string fault;
};

picture_memory find_picture_memory();

// Why there is no room for another picture of so many bytes by now, in one line; empty if there is.
// The browser says nothing of that: it may abort, hang, or go on with an old picture.
std::string picture_memory_fault(const picture_memory& memory, std::uintmax_t picture_bytes);

}  // namespace pennywort::host
