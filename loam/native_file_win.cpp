// loam/native_file_win.cpp - Windows half of loam/native_file.h. Linux half: native_file_linux.cpp.
#include <windows.h>

#include <algorithm>
#include <utility>

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

}  // namespace

struct native_file::native {
    HANDLE handle;
};

native_file::native_file(std::unique_ptr<native> handle) : m_native(std::move(handle)) {}

std::unique_ptr<native_file> native_file::open(const std::string& path, file_mode mode,
                                               int& error) {
    // Others may read, write and remove the file meanwhile, as they may elsewhere.
    constexpr DWORD k_share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const auto name = wide_path(path);
    if (!name) {
        error = ERROR_INVALID_NAME;
        return nullptr;
    }
    const opening how = opening_of(mode);
    const HANDLE handle = CreateFileW(name->c_str(), how.access, k_share, nullptr, how.disposition,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        error = last_error();
        return nullptr;
    }
    return std::unique_ptr<native_file>(new native_file(std::make_unique<native>(native{handle})));
}

bool native_file::remove(const std::string& path, int& error) {
    const auto name = wide_path(path);
    if (name && DeleteFileW(name->c_str())) return true;
    error = name ? last_error() : ERROR_INVALID_NAME;
    return false;
}

native_file::~native_file() { CloseHandle(m_native->handle); }

std::size_t native_file::write(std::span<const char> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const auto rest = bytes.subspan(written);
        DWORD count = 0;
        if (!WriteFile(m_native->handle, rest.data(), piece_of(rest.size()), &count, nullptr)) {
            m_error = last_error();
            return written;
        }
        written += count;
    }
    return written;
}

std::optional<std::size_t> native_file::read(std::span<char> bytes) {
    std::size_t received = 0;
    while (received < bytes.size()) {
        const auto rest = bytes.subspan(received);
        DWORD count = 0;
        if (!ReadFile(m_native->handle, rest.data(), piece_of(rest.size()), &count, nullptr)) {
            // The other end of a pipe has gone: that is how a pipe ends here.
            if (GetLastError() == ERROR_BROKEN_PIPE) break;
            m_error = last_error();
            return std::nullopt;
        }
        if (count == 0) break;
        received += count;
    }
    return received;
}

std::optional<std::int64_t> native_file::seek(std::int64_t offset, file_origin origin) {
    LARGE_INTEGER distance{};
    distance.QuadPart = offset;
    LARGE_INTEGER position{};
    if (SetFilePointerEx(m_native->handle, distance, &position, method_of(origin))) {
        return position.QuadPart;
    }
    m_error = last_error();
    return std::nullopt;
}

}  // namespace loam
