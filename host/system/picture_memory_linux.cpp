// host/system/picture_memory_linux.cpp - Linux half of host/system/picture_memory.h. Windows half:
// host/system/picture_memory_win.cpp.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "host/system/picture_memory.h"

namespace pennywort::host {

namespace {

// Some displays' pictures of the largest sizes, and a few of a small one's.
constexpr std::uintmax_t k_much = std::uintmax_t{2} << 30, k_least = 16 << 20;
constexpr std::uintmax_t k_mebibyte = 1 << 20;

// As the runtime finds it.
std::string temporary_files() {
    const char* const named = std::getenv("TMPDIR");
    return named != nullptr && *named != '\0' ? named : "/tmp";
}

// Nothing where it cannot be looked at.
std::optional<std::uintmax_t> room_in(const std::string& folder) {
    std::error_code failed;
    const auto room = std::filesystem::space(folder, failed);
    if (failed) return {};
    return room.available;
}

}  // namespace

// Memory where there is much of it: the disk may be full of recordings when a picture is to come.
// Containers often have 64 MB, which one large page fills. Where the runtime finds no room for a
// picture it aborts without a word.
picture_memory find_picture_memory() {
    const char* const k_shared = "/dev/shm";
    if (access(k_shared, W_OK | X_OK) == 0 && room_in(k_shared) >= k_much) return {};
    // Of a folder that is none the start of the runtime tells.
    const std::string folder = temporary_files();
    if (room_in(folder).value_or(k_least) >= k_least) return {true, {}};
    return {true, "no room for the browser's pictures: " + folder + " is full"};
}

// The next picture comes while the one before is still shown, and the browser has other files, too.
std::string picture_memory_fault(const picture_memory& memory, std::uintmax_t picture_bytes) {
    if (!memory.is_in_files) return {};
    const std::string folder = "the folder for temporary files, " + temporary_files() + ", ";
    const auto room = room_in(temporary_files());
    if (!room) return "no room for the browser's pictures: " + folder + "has gone";
    const std::uintmax_t needed = 2 * picture_bytes + 4 * k_mebibyte;
    if (*room >= needed) return {};
    return "no room for the browser's pictures: " + folder + "has " +
           std::to_string(*room / k_mebibyte) + " MiB left of the " +
           std::to_string(needed / k_mebibyte) + " that they need";
}

}  // namespace pennywort::host
