// loam/native_file.cpp - what is the same on every system; see the header for the contract.
#include "loam/native_file.h"

#include <utility>

namespace loam {

native_file::~native_file() {
    if (m_handle != k_closed) close_handle();
}

std::unique_ptr<native_file> native_file::open(const char* path, file_mode mode, int& error) {
    // The object first: what is open has an owner.
    std::unique_ptr<native_file> file(new native_file);
    error = file->open_handle(path, mode);
    return error == 0 ? std::move(file) : nullptr;
}

std::size_t native_file::write(std::span<const char> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const auto count = write_some(bytes.subspan(written));
        if (!count) break;
        written += *count;
    }
    return written;
}

std::optional<std::size_t> native_file::read(std::span<char> bytes) {
    std::size_t received = 0;
    while (received < bytes.size()) {
        const auto count = read_some(bytes.subspan(received));
        if (!count) return std::nullopt;
        if (*count == 0) break;
        received += *count;
    }
    return received;
}

}  // namespace loam
