// loam/path.cpp - see the header for the contract.
#include "loam/path.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "loam/trace.h"

namespace {

namespace fs = std::filesystem;

fs::path path_from_utf8(std::string_view text) {
    return fs::path(std::u8string(text.begin(), text.end()));
}

constexpr char k_separator = static_cast<char>(fs::path::preferred_separator);
// Where the separator is a backslash, a slash separates too.
constexpr std::string_view k_separators = k_separator == '\\' ? "\\/" : "/";

bool is_separator(char c) { return k_separators.find(c) != std::string_view::npos; }

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// "C:" or "\\server", which only a system with backslashes knows.
std::size_t root_name_size(std::string_view path) {
    if (k_separator != '\\' || path.size() < 2) return 0;
    if (is_letter(path[0]) && path[1] == ':') return 2;
    const bool has_server =
        path.size() > 2 && is_separator(path[0]) && is_separator(path[1]) && !is_separator(path[2]);
    return has_server ? std::min(path.find_first_of(k_separators, 2), path.size()) : 0;
}

// The part that no parent is above of.
std::size_t root_size(std::string_view path) {
    const std::size_t name = root_name_size(path);
    return name < path.size() && is_separator(path[name]) ? name + 1 : name;
}

// Without the separators at the end, unless they are the root itself.
std::string_view without_trailing_separators(std::string_view path) {
    const std::size_t root = root_size(path);
    while (path.size() > root && is_separator(path.back())) path.remove_suffix(1);
    return path;
}

std::string_view without_leading_separators(std::string_view path) {
    const std::size_t first = path.find_first_not_of(k_separators);
    return first == std::string_view::npos ? std::string_view() : path.substr(first);
}

// No error when the directory is there in the end. Returns the error of making it: the look
// afterwards knows only that it is missing.
std::error_code made_directory(const char* path) {
    try {
        const fs::path directory = path_from_utf8(path);
        std::error_code error;
        fs::create_directories(directory, error);
        std::error_code ignored;
        if (fs::is_directory(directory, ignored)) return {};
        return error ? error : std::make_error_code(std::errc::not_a_directory);
    } catch (const std::system_error& failure) {
        // Windows knows no path that is not valid UTF-8.
        return failure.code();
    } catch (const std::bad_alloc&) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
}

}  // namespace

zFSPath::zFSPath(const char* path) : m_path(path) {}

zFSPath::~zFSPath() = default;

const zFSPath& zFSPath::operator=(const zString& path) {
    m_path = path;
    return *this;
}

// By its bytes alone: a path need not be valid UTF-8, which std::filesystem would ask for on
// Windows.
const char* zFSPath::GoParent() {
    const std::string_view path = without_trailing_separators(m_path.View());
    const std::size_t last = path.find_last_of(k_separators);
    const std::size_t cut = std::max(root_size(path), last == std::string_view::npos ? 0 : last);
    const std::string_view parent = without_trailing_separators(path.substr(0, cut));
    m_path.SetLength(static_cast<std::uint32_t>(parent.size()));
    return m_path.CString();
}

const char* zFSPath::GoChild(const char* child) {
    const std::string_view part = child == nullptr ? "" : child;
    if (part.empty()) return m_path.CString();
    if (m_path.Empty()) return m_path.SetString(child);
    std::string joined(without_trailing_separators(m_path.View()));
    if (!is_separator(joined.back())) joined.push_back(k_separator);
    joined += without_leading_separators(part);
    m_path = std::move(joined);
    return m_path.CString();
}

const char* zFSPath::CString() const { return m_path.CString(); }

zStatus zDirectory::MakeSureExists(const char* path) {
    if (path == nullptr || *path == '\0') return -1;
    const std::error_code error = made_directory(path);
    if (!error) return 0;
    zTraceManager::Default()->TraceNote("zDirectory::MakeSureExists: failed (err=%d, path=%s)\n",
                                        error.value(), path);
    return -1;
}
