// loam/native_file_win.cpp - Windows half of loam/native_file.h. Linux half: native_file_linux.cpp.
#include <windows.h>

#include <algorithm>

#include "loam/native_file.h"
#include "loam/wide_path.h"

namespace loam {
namespace {

// One call of the system counts in 32 bits.
constexpr std::size_t k_largest_piece = 1u << 30;

struct opening {
    DWORD access;
    DWORD disposition;
};

opening opening_of(file_mode mode) {
    switch (mode) {
        case file_mode::read:
            return {GENERIC_READ, OPEN_EXISTING};
        case file_mode::create:
            return {GENERIC_WRITE, CREATE_ALWAYS};
        case file_mode::append:
            // Without the right to write elsewhere, every write goes to the end, also when several
            // processes append to one file.
            return {FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS};
        case file_mode::read_write:
            return {GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING};
    }
    return {GENERIC_READ, OPEN_EXISTING};
}

DWORD method_of(file_origin origin) {
    switch (origin) {
        case file_origin::start:
            return FILE_BEGIN;
        case file_origin::here:
            return FILE_CURRENT;
        case file_origin::end:
            return FILE_END;
    }
    return FILE_BEGIN;
}

int last_error() { return static_cast<int>(GetLastError()); }

DWORD piece_of(std::size_t bytes) { return static_cast<DWORD>(std::min(bytes, k_largest_piece)); }

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

int native_file::open_handle(const char* path, file_mode mode) {
    // Others may read, write and remove the file meanwhile, as they may elsewhere.
    constexpr DWORD k_share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const auto name = wide_path(path);
    if (!name) return ERROR_INVALID_NAME;
    const opening how = opening_of(mode);
    m_handle = reinterpret_cast<std::intptr_t>(CreateFileW(name->c_str(), how.access, k_share,
                                                           nullptr, how.disposition,
                                                           FILE_ATTRIBUTE_NORMAL, nullptr));
    return m_handle == k_closed ? last_error() : 0;
}

void native_file::close_handle() { CloseHandle(native(m_handle)); }

bool native_file::remove(const char* path, int& error) {
    const auto name = wide_path(path);
    if (name && DeleteFileW(name->c_str())) return true;
    error = name ? last_error() : ERROR_INVALID_NAME;
    return false;
}

std::optional<std::size_t> native_file::write_some(std::span<const char> bytes) {
    DWORD count = 0;
    if (WriteFile(native(m_handle), bytes.data(), piece_of(bytes.size()), &count, nullptr)) {
        return count;
    }
    m_error = last_error();
    return std::nullopt;
}

std::optional<std::size_t> native_file::read_some(std::span<char> bytes) {
    DWORD count = 0;
    if (ReadFile(native(m_handle), bytes.data(), piece_of(bytes.size()), &count, nullptr)) {
        return count;
    }
    const int error = last_error();
    // The other end of a pipe has gone: that is how a pipe ends here.
    if (error == ERROR_BROKEN_PIPE) return 0;
    m_error = error;
    return std::nullopt;
}

std::optional<std::int64_t> native_file::seek(std::int64_t offset, file_origin origin) {
    LARGE_INTEGER distance{};
    distance.QuadPart = offset;
    LARGE_INTEGER position{};
    if (SetFilePointerEx(native(m_handle), distance, &position, method_of(origin))) {
        return position.QuadPart;
    }
    m_error = last_error();
    return std::nullopt;
}

}  // namespace loam
