// loam/file_stream.h - zFileStream reads and writes one file.
#pragma once

#include <cstdint>
#include <memory>

#include "loam/buffer.h"
#include "loam/export.h"
#include "loam/string.h"
#include "loam/types.h"

namespace loam {
class native_file;
}

// Nothing is buffered here: what Write() has taken, the system has. Statuses are 0, or -1 for any
// failure, which is traced with the system's own code. Child processes do not inherit the file.
// Threads: one at a time.
class LOAM_API zFileStream {
public:
    enum : std::uint8_t {
        k_read = 1,        // the file must be there
        k_create = 2,      // created, or cut to nothing; write only
        k_append = 3,      // created if missing; every write goes to the end
        k_read_write = 4,  // the file must be there
    };
    enum : std::uint8_t { k_from_start = 0, k_from_here = 1, k_from_end = 2 };

    // `path` is UTF-8. With `open_now` the file is opened at once; IsOpen() says whether it could.
    zFileStream(const char* path, std::uint8_t mode, bool open_now);
    zFileStream(const zFileStream&) = delete;
    zFileStream& operator=(const zFileStream&) = delete;
    // Closes the file.
    virtual ~zFileStream();

    // An open file is closed first. An unknown mode is a failure.
    virtual zStatus Open();
    // Harmless when the file is closed.
    virtual zStatus Close();
    // Writes all bytes. `written`, which may be null, says how many went out, also on failure.
    virtual zStatus Write(const char* bytes, std::uint32_t length, std::uint32_t* written);
    // Nothing waits here to be flushed: returns whether the file is open.
    virtual zStatus Flush();
    // Past the end is allowed, before the start is a failure that moves nothing.
    virtual zStatus Seek(std::int32_t offset, std::uint8_t origin);
    // Reads until `size` bytes are there or the file ends; `received`, which may be null, says how
    // many came. The end of the file is no failure.
    virtual zStatus Read(char* bytes, std::uint32_t size, std::uint32_t* received);
    // Replaces the content of `out` with the file from the current position to its end. Files past
    // 4 GB are a failure, and `out` is empty after any.
    virtual zStatus ReadAll(zBuffer& out);
    // Bytes from the start of the file, -1 when it is closed.
    virtual std::int64_t Position();
    // The path as given.
    virtual const char* Name() const;

    bool IsOpen() const;
    // Whether the last Open, or a Write since, has failed.
    bool HasFailed() const { return m_has_failed; }

    // -1 when there is no such file or it is a directory.
    static zStatus RemoveFile(const char* path);

private:
    zString m_path;
    std::uint8_t m_mode;
    bool m_has_failed = false;
    std::unique_ptr<loam::native_file> m_file;
};
