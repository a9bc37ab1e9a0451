// loam/native_file_linux.cpp - Linux half of loam/native_file.h. Windows half: native_file_win.cpp.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

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

}  // namespace

struct native_file::native {
    int descriptor;
};

native_file::native_file(std::unique_ptr<native> handle) : m_native(std::move(handle)) {}

std::unique_ptr<native_file> native_file::open(const std::string& path, file_mode mode,
                                               int& error) {
    // Readable and writable by everybody whom the process's mask does not exclude.
    constexpr mode_t k_rights = 0666;
    const int descriptor = unless_interrupted(
        [&] { return ::open(path.c_str(), flags_of(mode) | O_CLOEXEC, k_rights); });
    if (descriptor < 0) {
        error = errno;
        return nullptr;
    }
    auto handle = std::make_unique<native>(native{descriptor});
    return std::unique_ptr<native_file>(new native_file(std::move(handle)));
}

bool native_file::remove(const std::string& path, int& error) {
    if (::unlink(path.c_str()) == 0) return true;
    error = errno;
    return false;
}

// Not repeated when a signal interrupts it: Linux has given the descriptor back by then, and it may
// already be another thread's.
native_file::~native_file() { ::close(m_native->descriptor); }

std::size_t native_file::write(std::span<const char> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const auto rest = bytes.subspan(written);
        const auto count = unless_interrupted(
            [&] { return ::write(m_native->descriptor, rest.data(), rest.size()); });
        if (count < 0) {
            m_error = errno;
            return written;
        }
        written += static_cast<std::size_t>(count);
    }
    return written;
}

std::optional<std::size_t> native_file::read(std::span<char> bytes) {
    std::size_t received = 0;
    while (received < bytes.size()) {
        const auto rest = bytes.subspan(received);
        const auto count = unless_interrupted(
            [&] { return ::read(m_native->descriptor, rest.data(), rest.size()); });
        if (count < 0) {
            m_error = errno;
            return std::nullopt;
        }
        if (count == 0) break;
        received += static_cast<std::size_t>(count);
    }
    return received;
}

std::optional<std::int64_t> native_file::seek(std::int64_t offset, file_origin origin) {
    const off_t position = ::lseek(m_native->descriptor, offset, whence_of(origin));
    if (position >= 0) return position;
    m_error = errno;
    return std::nullopt;
}

}  // namespace loam
