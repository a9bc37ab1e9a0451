// loam/buffer.h - zBuffer, an owned, growable run of bytes, and zBufferStream, which writes into
// it.
//
// Threads: not locked; any number of threads may read one buffer that nobody changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "loam/export.h"
#include "loam/types.h"

namespace loam {
struct buffer_access;
}

class LOAM_API zBuffer {
public:
    // `size` bytes, all 0. The memory grows by at least `grow` bytes at a time.
    explicit zBuffer(std::uint32_t size = 0, std::uint32_t grow = 0);
    zBuffer(const zBuffer& other);
    zBuffer& operator=(const zBuffer& other);
    virtual ~zBuffer();

    // Null or anything when the length is 0; valid until the buffer is resized or ends.
    char* Data();
    const char* Data() const;
    std::uint32_t Length() const;
    // Bytes that fit without another allocation.
    std::uint32_t Capacity() const;

    // Makes the buffer `size` bytes long. Its first `keep` bytes (all ones: as many as there are)
    // stay, all others are 0. Returns -1, and leaves the buffer as it was, when there is no memory.
    zStatus ResizeTo(std::uint32_t size, std::uint32_t keep);

private:
    friend struct loam::buffer_access;

    std::unique_ptr<char[]> m_bytes;
    std::size_t m_length = 0;
    std::size_t m_capacity = 0;
    std::uint32_t m_grow;
};

// Appends to a buffer that must outlive the stream. While it writes, the buffer may be longer than
// what was written; ResizeBufferToFit() ends that.
class LOAM_API zBufferStream {
public:
    // Begins behind what the buffer holds; it is made longer by at least `grow` bytes at a time.
    zBufferStream(zBuffer& buffer, std::uint32_t grow);
    zBufferStream(const zBufferStream&) = delete;
    zBufferStream& operator=(const zBufferStream&) = delete;
    virtual ~zBufferStream();

    // Appends `length` bytes. `written`, which may be null, is set to the number of bytes appended:
    // all or, with a status of -1, none (no memory, past 4 GB, null with a length).
    virtual zStatus Write(const char* bytes, std::uint32_t length, std::uint32_t* written);
    // Cuts the buffer to what it held at the start and what was written since.
    void ResizeBufferToFit();

private:
    zBuffer& m_buffer;
    std::uint32_t m_grow;
    std::uint32_t m_end;
};
