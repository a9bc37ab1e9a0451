// httpserver/folder_file_linux.cpp - Linux half of folder_file.h. Windows half:
// folder_file_win.cpp.
//
// Each name is opened from the folder before it and never through a link, so that nobody can swap
// a folder for a link between a check and its use.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "httpserver/folder_file.h"

namespace pennywort::httpserver {
namespace {

// A descriptor that is closed at the end.
class descriptor {
public:
    explicit descriptor(int number) : m_number(number) {}
    descriptor(descriptor&& other) noexcept : m_number(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~descriptor() {
        if (m_number >= 0) ::close(m_number);
    }

    int get() const { return m_number; }
    int release() { return std::exchange(m_number, -1); }

private:
    int m_number;
};

// A pipe without a writer would hold up whoever opens it; one never waits here.
constexpr int k_flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

descriptor open_below(const descriptor& folder, const std::string& name, int flags) {
    int opened = -1;
    do {
        opened = ::openat(folder.get(), name.c_str(), k_flags | flags);
    } while (opened < 0 && errno == EINTR);
    return descriptor(opened);
}

// The folder that the first `count` names lead to; not open if they do not.
descriptor folder_below(const std::string& folder, const std::vector<std::string>& names,
                        std::size_t count) {
    descriptor at(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (std::size_t i = 0; i < count && at.get() >= 0; ++i) {
        at = open_below(at, names[i], O_PATH | O_DIRECTORY);
    }
    return at;
}

file_time time_of(const timespec& time) {
    return {time.tv_sec, static_cast<std::int32_t>(time.tv_nsec)};
}

// After a call that has failed.
no_file last_reason() {
    const bool is_short = errno == EMFILE || errno == ENFILE || errno == ENOMEM;
    return is_short ? no_file::is_short : no_file::is_none;
}

}  // namespace

bool folder_file::is_folder(const std::string& folder, const std::vector<std::string>& names) {
    return folder_below(folder, names, names.size()).get() >= 0;
}

std::unique_ptr<folder_file> folder_file::open(const std::string& folder,
                                               const std::vector<std::string>& names,
                                               no_file& why) {
    why = no_file::is_none;
    if (names.empty()) return nullptr;
    const descriptor at = folder_below(folder, names, names.size() - 1);
    if (at.get() < 0) return why = last_reason(), nullptr;
    descriptor file = open_below(at, names.back(), 0);
    if (file.get() < 0) return why = last_reason(), nullptr;
    struct stat about {};
    if (::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) return nullptr;
    return std::unique_ptr<folder_file>(
        new folder_file(file.release(), about.st_size, time_of(about.st_mtim)));
}

folder_file::~folder_file() { ::close(static_cast<int>(m_handle)); }

std::int32_t folder_file::read_at(std::int64_t offset, char* into, std::int32_t size) {
    ssize_t count = -1;
    do {
        count = ::pread(static_cast<int>(m_handle), into, static_cast<std::size_t>(size), offset);
    } while (count < 0 && errno == EINTR);
    return static_cast<std::int32_t>(count);
}

}  // namespace pennywort::httpserver
