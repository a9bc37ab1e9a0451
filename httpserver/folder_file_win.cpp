// httpserver/folder_file_win.cpp - Windows half of folder_file.h. Linux half:
// folder_file_linux.cpp.
//
// Each folder on the way stays open, without the right for others to rename or delete it, until the
// file is open: nobody can swap a folder for a link between the check and its use. What was opened
// has to bear the name that was asked for: a short name ("SECRET~1.TXT") would get around whatever
// forbids the long one.
#include <windows.h>

#include <string>

#include "httpserver/folder_file.h"
#include "loam/wide_string.h"

namespace pennywort::httpserver {
namespace {

// A handle that is closed at the end.
class owned_handle {
public:
    explicit owned_handle(HANDLE handle) : m_handle(handle) {}
    owned_handle(const owned_handle&) = delete;
    owned_handle& operator=(const owned_handle&) = delete;
    owned_handle(owned_handle&& other) noexcept : m_handle(other.release()) {}
    ~owned_handle() {
        if (is_open()) ::CloseHandle(m_handle);
    }

    bool is_open() const { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return m_handle; }
    HANDLE release() {
        HANDLE const handle = m_handle;
        m_handle = INVALID_HANDLE_VALUE;
        return handle;
    }

private:
    HANDLE m_handle;
};

std::wstring wide(const std::string& text) {
    const zWideStr converted(text.c_str(), static_cast<std::int32_t>(text.size()));
    return reinterpret_cast<const wchar_t*>(converted.WideStr());
}

constexpr DWORD k_held = FILE_SHARE_READ | FILE_SHARE_WRITE;
// A file that a slow peer reads may be replaced meanwhile.
constexpr DWORD k_replaceable = k_held | FILE_SHARE_DELETE;

owned_handle open_path(const std::string& path, DWORD flags, DWORD sharing) {
    return owned_handle(::CreateFileW(wide(path).c_str(), GENERIC_READ, sharing, nullptr,
                                      OPEN_EXISTING, flags, nullptr));
}

// Empty if the system does not say.
std::wstring path_of(const owned_handle& file) {
    std::wstring path(::GetFinalPathNameByHandleW(file.get(), nullptr, 0, 0), L'\0');
    const auto size = static_cast<DWORD>(path.size());
    const DWORD length = ::GetFinalPathNameByHandleW(file.get(), path.data(), size, 0);
    if (length >= size) return {};
    path.resize(length);
    return path;
}

bool bears_name(const owned_handle& file, const std::string& name) {
    const std::wstring path = path_of(file);
    const std::wstring wanted = wide(name);
    const std::size_t start = path.rfind(L'\\') + 1;
    return ::CompareStringOrdinal(path.c_str() + start, -1, wanted.c_str(), -1, TRUE) == CSTR_EQUAL;
}

DWORD attributes_of(const owned_handle& file) {
    BY_HANDLE_FILE_INFORMATION about{};
    const bool known = file.is_open() && ::GetFileInformationByHandle(file.get(), &about) != 0;
    // A file that cannot be looked at is taken for a link.
    return known ? about.dwFileAttributes : FILE_ATTRIBUTE_REPARSE_POINT;
}

bool is_plain_folder(const owned_handle& folder) {
    const DWORD attributes = attributes_of(folder);
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

// Names such as "con" are devices wherever they stand.
bool is_plain_file(const owned_handle& file) {
    return file.is_open() && ::GetFileType(file.get()) == FILE_TYPE_DISK &&
           (attributes_of(file) & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

// A file's time counts tenths of a microsecond from 1601 on.
file_time modified_of(const owned_handle& file) {
    constexpr std::int64_t k_second = 10'000'000;
    constexpr std::int64_t k_from_1601_to_1970 = 11'644'473'600;  // in seconds
    FILETIME written{};
    if (::GetFileTime(file.get(), nullptr, nullptr, &written) == 0) return {};
    const std::int64_t time = (std::int64_t{written.dwHighDateTime} << 32) | written.dwLowDateTime;
    return {time / k_second - k_from_1601_to_1970,
            static_cast<std::int32_t>(time % k_second * 100)};
}

// After a call that has failed.
no_file last_reason() {
    switch (::GetLastError()) {
        case ERROR_TOO_MANY_OPEN_FILES:
        case ERROR_NO_SYSTEM_RESOURCES:
        case ERROR_NOT_ENOUGH_MEMORY:
            return no_file::is_short;
        default:
            return no_file::is_none;
    }
}

// Opens the folder and those that the first `count` names lead to, each held by its handle. Fewer
// than asked for if one of them is no plain folder.
std::vector<owned_handle> folders_below(std::string& path, const std::vector<std::string>& names,
                                        std::size_t count) {
    constexpr DWORD k_of_folders = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
    std::vector<owned_handle> folders;
    folders.push_back(open_path(path, FILE_FLAG_BACKUP_SEMANTICS, k_held));
    if (!folders.back().is_open()) return {};
    for (std::size_t i = 0; i < count; ++i) {
        path += '\\' + names[i];
        folders.push_back(open_path(path, k_of_folders, k_held));
        if (!is_plain_folder(folders.back()) || !bears_name(folders.back(), names[i])) return {};
    }
    return folders;
}

}  // namespace

bool folder_file::is_folder(const std::string& folder, const std::vector<std::string>& names) {
    std::string path = folder;
    return !folders_below(path, names, names.size()).empty();
}

std::unique_ptr<folder_file> folder_file::open(const std::string& folder,
                                               const std::vector<std::string>& names,
                                               no_file& why) {
    why = no_file::is_none;
    if (names.empty()) return nullptr;
    std::string path = folder;
    const std::vector<owned_handle> folders = folders_below(path, names, names.size() - 1);
    if (folders.empty()) return nullptr;
    owned_handle file =
        open_path(path + '\\' + names.back(), FILE_FLAG_OPEN_REPARSE_POINT, k_replaceable);
    if (!file.is_open()) return why = last_reason(), nullptr;
    LARGE_INTEGER size{};
    if (!is_plain_file(file) || !bears_name(file, names.back())) return nullptr;
    if (::GetFileSizeEx(file.get(), &size) == 0) return nullptr;
    const file_time modified = modified_of(file);
    const auto handle = reinterpret_cast<std::intptr_t>(file.release());
    return std::unique_ptr<folder_file>(new folder_file(handle, size.QuadPart, modified));
}

folder_file::~folder_file() { ::CloseHandle(reinterpret_cast<HANDLE>(m_handle)); }

std::int32_t folder_file::read_at(std::int64_t offset, char* into, std::int32_t size) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD count = 0;
    const auto handle = reinterpret_cast<HANDLE>(m_handle);
    if (::ReadFile(handle, into, static_cast<DWORD>(size), &count, &place) == 0) {
        return ::GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    }
    return static_cast<std::int32_t>(count);
}

}  // namespace pennywort::httpserver
