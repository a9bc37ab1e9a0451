// folder_file.h - one plain file below a folder, opened so that no link leads out. Twins:
// folder_file_linux.cpp, folder_file_win.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace pennywort::httpserver {

// A moment since 1970, as far as the system knows it. In one number of nanoseconds it would end in
// 2262, and file systems go on.
struct file_time {
    std::int64_t seconds = 0;
    std::int32_t nanoseconds = 0;
};

// Why there is no file.
enum class no_file {
    is_none,  // not there, a folder, a link, a device
    is_short  // of descriptors or memory: it may be there
};

class folder_file {
public:
    // What the names lead to, one below the other, from `folder`; both in UTF-8. The folder itself
    // may be a link; what lies below it may not. Null with the reason in `why` when it is no
    // plain file or cannot be opened.
    static std::unique_ptr<folder_file> open(const std::string& folder,
                                             const std::vector<std::string>& names, no_file& why);
    // Whether the names lead to a plain folder, in the same way.
    static bool is_folder(const std::string& folder, const std::vector<std::string>& names);

    folder_file(const folder_file&) = delete;
    folder_file& operator=(const folder_file&) = delete;
    ~folder_file();

    // In bytes, when it was opened.
    std::int64_t size() const { return m_size; }
    // When it was last written to.
    const file_time& modified() const { return m_modified; }
    // Returns the number of bytes read: 0 at the end, -1 on failure.
    std::int32_t read_at(std::int64_t offset, char* into, std::int32_t size);

private:
    folder_file(std::intptr_t handle, std::int64_t size, const file_time& modified)
        : m_handle(handle), m_size(size), m_modified(modified) {}

    std::intptr_t m_handle;
    std::int64_t m_size;
    file_time m_modified;
};

}  // namespace pennywort::httpserver
