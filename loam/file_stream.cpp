// loam/file_stream.cpp - see the header for the contract. The system's files are in native_file.h.
#include "loam/file_stream.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "loam/native_file.h"
#include "loam/out_of_memory.h"
#include "loam/trace.h"

namespace {

std::optional<loam::file_mode> mode_of(std::uint8_t mode) {
    switch (mode) {
        case zFileStream::k_read:
            return loam::file_mode::read;
        case zFileStream::k_create:
            return loam::file_mode::create;
        case zFileStream::k_append:
            return loam::file_mode::append;
        case zFileStream::k_read_write:
            return loam::file_mode::read_write;
        default:
            return std::nullopt;
    }
}

std::optional<loam::file_origin> origin_of(std::uint8_t origin) {
    switch (origin) {
        case zFileStream::k_from_start:
            return loam::file_origin::start;
        case zFileStream::k_from_here:
            return loam::file_origin::here;
        case zFileStream::k_from_end:
            return loam::file_origin::end;
        default:
            return std::nullopt;
    }
}

zStatus failed(const char* operation, int error, const char* path) {
    zTraceManager::Default()->TraceNote("zFileStream::%s: failed (err=%d, file=%s)\n", operation,
                                        error, path);
    return -1;
}

}  // namespace

zFileStream::zFileStream(const char* path, std::uint8_t mode, bool open_now)
    : m_path(path), m_mode(mode) {
    if (open_now) zFileStream::Open();
}

zFileStream::~zFileStream() = default;

zStatus zFileStream::Open() {
    m_file.reset();
    m_has_failed = true;
    const auto mode = mode_of(m_mode);
    if (!mode) return -1;
    return loam::unless_out_of_memory([&] {
        int error = 0;
        m_file = loam::native_file::open(Name(), *mode, error);
        m_has_failed = m_file == nullptr;
        return m_has_failed ? failed("Open", error, Name()) : 0;
    });
}

zStatus zFileStream::Close() {
    m_file.reset();
    return 0;
}

zStatus zFileStream::Write(const char* bytes, std::uint32_t length, std::uint32_t* written) {
    if (written != nullptr) *written = 0;
    if (m_file == nullptr || (bytes == nullptr && length != 0)) return -1;
    const std::size_t count = m_file->write({bytes, length});
    if (written != nullptr) *written = static_cast<std::uint32_t>(count);
    if (count == length) return 0;
    m_has_failed = true;
    return failed("Write", m_file->error(), Name());
}

zStatus zFileStream::Flush() { return IsOpen() ? 0 : -1; }

zStatus zFileStream::Seek(std::int32_t offset, std::uint8_t origin) {
    const auto from = origin_of(origin);
    if (m_file == nullptr || !from) return -1;
    return m_file->seek(offset, *from) ? 0 : failed("Seek", m_file->error(), Name());
}

zStatus zFileStream::Read(char* bytes, std::uint32_t size, std::uint32_t* received) {
    if (received != nullptr) *received = 0;
    if (m_file == nullptr || (bytes == nullptr && size != 0)) return -1;
    const auto count = m_file->read({bytes, size});
    if (!count) return failed("Read", m_file->error(), Name());
    if (received != nullptr) *received = static_cast<std::uint32_t>(*count);
    return 0;
}

// Reads in growing pieces and does not ask for the size first: a pipe or a file under /proc has
// none to tell.
zStatus zFileStream::ReadAll(zBuffer& out) {
    constexpr std::uint64_t k_most = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t end = 0;
    out.ResizeTo(0, 0);
    if (m_file == nullptr) return -1;
    for (std::uint64_t piece = 64 * 1024;; piece *= 2) {
        const auto size = static_cast<std::uint32_t>(std::min(end + piece, k_most));
        if (size == end || out.ResizeTo(size, end) != 0) break;
        const auto count = m_file->read({out.Data() + end, size - end});
        if (!count) {
            failed("ReadAll", m_file->error(), Name());
            break;
        }
        end += static_cast<std::uint32_t>(*count);
        if (end < size) return out.ResizeTo(end, end);
    }
    out.ResizeTo(0, 0);
    return -1;
}

std::int64_t zFileStream::Position() {
    if (m_file == nullptr) return -1;
    return m_file->seek(0, loam::file_origin::here).value_or(-1);
}

const char* zFileStream::Name() const { return m_path.CString(); }

bool zFileStream::IsOpen() const { return m_file != nullptr; }

zStatus zFileStream::RemoveFile(const char* path) {
    if (path == nullptr) return -1;
    return loam::unless_out_of_memory([&] {
        int error = 0;
        return loam::native_file::remove(path, error) ? 0 : failed("RemoveFile", error, path);
    });
}
