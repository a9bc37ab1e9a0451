// loam/path.cpp - see the header for the contract.
#include "loam/path.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "loam/trace.h"

namespace {

namespace fs = std::filesystem;

fs::path path_from_utf8(std::string_view text) {
    return fs::path(std::u8string(text.begin(), text.end()));
}

std::string utf8_from_path(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

constexpr char k_separator = static_cast<char>(fs::path::preferred_separator);
// Where the separator is a backslash, a slash separates too.
constexpr std::string_view k_separators = k_separator == '\\' ? "\\/" : "/";

// Without the separators at the end, unless they are the root itself.
std::string_view without_trailing_separators(std::string_view path) {
    const std::size_t root = utf8_from_path(path_from_utf8(path).root_path()).size();
    while (path.size() > root && k_separators.find(path.back()) != std::string_view::npos) {
        path.remove_suffix(1);
    }
    return path;
}

std::string_view without_leading_separators(std::string_view path) {
    const std::size_t first = path.find_first_not_of(k_separators);
    return first == std::string_view::npos ? std::string_view() : path.substr(first);
}

}  // namespace

zFSPath::zFSPath(const char* path) : m_path(path) {}

zFSPath::~zFSPath() = default;

const zFSPath& zFSPath::operator=(const zString& path) {
    m_path = path;
    return *this;
}

const char* zFSPath::GoParent() {
    const fs::path path = path_from_utf8(without_trailing_separators(m_path.View()));
    const std::string parent = utf8_from_path(path.parent_path());
    m_path = std::string(without_trailing_separators(parent));
    return m_path.CString();
}

const char* zFSPath::GoChild(const char* child) {
    const std::string_view part = child == nullptr ? "" : child;
    if (part.empty()) return m_path.CString();
    if (m_path.Empty()) return m_path.SetString(child);
    std::string joined(without_trailing_separators(m_path.View()));
    if (k_separators.find(joined.back()) == std::string_view::npos) joined.push_back(k_separator);
    joined += without_leading_separators(part);
    m_path = std::move(joined);
    return m_path.CString();
}

const char* zFSPath::CString() const { return m_path.CString(); }

zStatus zDirectory::MakeSureExists(const char* path) {
    if (path == nullptr || *path == '\0') return -1;
    std::error_code error;
    const fs::path directory = path_from_utf8(path);
    fs::create_directories(directory, error);
    if (fs::is_directory(directory, error)) return 0;
    zTraceManager::Default()->TraceNote("zDirectory::MakeSureExists: failed (err=%d, path=%s)\n",
                                        error.value(), path);
    return -1;
}
