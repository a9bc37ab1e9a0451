// host/system/picture_memory_linux.cpp - Linux half of host/system/picture_memory.h. Windows half:
// host/system/picture_memory_win.cpp.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "host/system/picture_memory.h"

namespace pennywort::host {

namespace {

// Some displays' pictures of the largest sizes, and a few of a small one's.
constexpr std::uintmax_t k_much = std::uintmax_t{2} << 30, k_least = 16 << 20;
constexpr std::uintmax_t k_mebibyte = 1 << 20;

std::uintmax_t room_in(const std::filesystem::path& folder) {
    std::error_code failed;
    const auto room = std::filesystem::space(folder, failed);
    return failed ? 0 : room.available;
}

}  // namespace

// Memory where there is much of it: the disk may be full of recordings when a picture is to come.
// Containers often have 64 MB, which one large page fills. Where the runtime finds no room for a
// picture it aborts without a word.
picture_memory find_picture_memory() {
    const char* const k_shared = "/dev/shm";
    if (access(k_shared, W_OK | X_OK) == 0 && room_in(k_shared) >= k_much) return {};
    std::error_code failed;
    const auto folder = std::filesystem::temp_directory_path(failed);
    if (!failed && room_in(folder) >= k_least) return {true, {}};
    return {true,
            "no room for the browser's pictures: " +
                (failed ? "there is no folder for temporary files" : folder.string() + " is full")};
}

// The next picture comes while the one before is still shown, and the browser has other files, too.
std::string picture_memory_fault(const picture_memory& memory, std::uintmax_t picture_bytes) {
    if (!memory.is_in_files) return {};
    std::error_code failed;
    const auto folder = std::filesystem::temp_directory_path(failed);
    const std::uintmax_t room = failed ? 0 : room_in(folder);
    const std::uintmax_t needed = 2 * picture_bytes + 4 * k_mebibyte;
    if (room >= needed) return {};
    return "no room for the browser's pictures: the folder for temporary files, " +
           folder.string() + ", has " + std::to_string(room / k_mebibyte) + " MiB left of the " +
           std::to_string(needed / k_mebibyte) + " that they need";
}

}  // namespace pennywort::host
