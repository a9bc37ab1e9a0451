// loam/native_file_linux.cpp - Linux half of loam/native_file.h. Windows half: native_file_win.cpp.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "loam/interrupted.h"
#include "loam/native_file.h"

namespace loam {
namespace {

int flags_of(file_mode mode) {
    switch (mode) {
        case file_mode::read:
            return O_RDONLY;
        case file_mode::create:
            return O_WRONLY | O_CREAT | O_TRUNC;
        case file_mode::append:
            return O_WRONLY | O_CREAT | O_APPEND;
        case file_mode::read_write:
            return O_RDWR;
    }
    return O_RDONLY;
}

int whence_of(file_origin origin) {
    switch (origin) {
        case file_origin::start:
            return SEEK_SET;
        case file_origin::here:
            return SEEK_CUR;
        case file_origin::end:
            return SEEK_END;
    }
    return SEEK_SET;
}

int native(std::intptr_t handle) { return static_cast<int>(handle); }

}  // namespace

int native_file::open_handle(const char* path, file_mode mode) {
    // Readable and writable by everybody whom the process's mask does not exclude.
    constexpr mode_t k_rights = 0666;
    m_handle =
        unless_interrupted([&] { return ::open(path, flags_of(mode) | O_CLOEXEC, k_rights); });
    return m_handle == k_closed ? errno : 0;
}

// Not repeated when a signal interrupts it: Linux has given the descriptor back by then, and it may
// already be another thread's.
void native_file::close_handle() { ::close(native(m_handle)); }

bool native_file::remove(const char* path, int& error) {
    if (::unlink(path) == 0) return true;
    error = errno;
    return false;
}

std::optional<std::size_t> native_file::write_some(std::span<const char> bytes) {
    const auto count =
        unless_interrupted([&] { return ::write(native(m_handle), bytes.data(), bytes.size()); });
    if (count >= 0) return static_cast<std::size_t>(count);
    m_error = errno;
    return std::nullopt;
}

std::optional<std::size_t> native_file::read_some(std::span<char> bytes) {
    const auto count =
        unless_interrupted([&] { return ::read(native(m_handle), bytes.data(), bytes.size()); });
    if (count >= 0) return static_cast<std::size_t>(count);
    m_error = errno;
    return std::nullopt;
}

std::optional<std::int64_t> native_file::seek(std::int64_t offset, file_origin origin) {
    const off_t position = ::lseek(native(m_handle), offset, whence_of(origin));
    if (position >= 0) return position;
    m_error = errno;
    return std::nullopt;
}

}  // namespace loam
