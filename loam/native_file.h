// loam/native_file.h - one open file of the system. Twins: native_file_linux.cpp,
// native_file_win.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace loam {

enum class file_mode { read, create, append, read_write };
enum class file_origin { start, here, end };

// Closed by its destructor; not inherited by child processes. Nothing is traced here: the trace
// file is one of these too. A failure leaves the system's own code in `error` or error().
class native_file {
public:
    // `path` is UTF-8. Null on failure; without memory it throws, and nothing was opened.
    static std::unique_ptr<native_file> open(const char* path, file_mode mode, int& error);
    static bool remove(const char* path, int& error);

    native_file(const native_file&) = delete;
    native_file& operator=(const native_file&) = delete;
    ~native_file();

    // Writes until all is written; returns how much was, which is less only on failure.
    std::size_t write(std::span<const char> bytes);
    // Reads until `bytes` is full or the file ends, and returns how much came; nothing on failure.
    std::optional<std::size_t> read(std::span<char> bytes);
    // The new position; nothing on failure.
    std::optional<std::int64_t> seek(std::int64_t offset, file_origin origin);
    // The code of the last failure.
    int error() const { return m_error; }

private:
    native_file() = default;

    // The system's side. 0 or the system's code.
    int open_handle(const char* path, file_mode mode);
    void close_handle();
    // One call of the system, which may take less than all: how much, 0 at the end of the file,
    // nothing on failure.
    std::optional<std::size_t> write_some(std::span<const char> bytes);
    std::optional<std::size_t> read_some(std::span<char> bytes);

    static constexpr std::intptr_t k_closed = -1;

    std::intptr_t m_handle = k_closed;
    int m_error = 0;
};

}  // namespace loam
