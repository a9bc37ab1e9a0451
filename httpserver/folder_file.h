// folder_file.h - one plain file below a folder, opened so that no link leads out. Twins:
// folder_file_linux.cpp, folder_file_win.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace pennywort::httpserver {

class folder_file {
public:
    // What the names lead to, one below the other, from `folder`; both in UTF-8. The folder itself
    // may be a link; what lies below it may not. Null when it is no plain file: not there, a
    // folder, a link, a device.
    static std::unique_ptr<folder_file> open(const std::string& folder,
                                             const std::vector<std::string>& names);
    // Whether the names lead to a plain folder, in the same way.
    static bool is_folder(const std::string& folder, const std::vector<std::string>& names);

    folder_file(const folder_file&) = delete;
    folder_file& operator=(const folder_file&) = delete;
    ~folder_file();

    // In bytes, when it was opened.
    std::int64_t size() const { return m_size; }
    // When it was last written to, in nanoseconds since 1970, as far as the system knows.
    std::int64_t modified_ns() const { return m_modified_ns; }
    // Returns the number of bytes read: 0 at the end, -1 on failure.
    std::int32_t read_at(std::int64_t offset, char* into, std::int32_t size);

private:
    folder_file(std::intptr_t handle, std::int64_t size, std::int64_t modified_ns)
        : m_handle(handle), m_size(size), m_modified_ns(modified_ns) {}

    std::intptr_t m_handle;
    std::int64_t m_size;
    std::int64_t m_modified_ns;
};

}  // namespace pennywort::httpserver
