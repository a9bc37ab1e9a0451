// folder_claim_win.cpp - Windows half of folder_claim.h. Linux half: folder_claim_linux.cpp.
#include "webdisplay/folder_claim.h"

#include <windows.h>

#include "loam/id_generator.h"
#include "loam/path.h"
#include "loam/wide_text.h"
#include "webdisplay/cef/system_failure_win.h"

namespace pennywort::webdisplay {

namespace {

using cef::trace_failure;

void close(HANDLE file) {
    if (CloseHandle(file)) return;
    const DWORD error = GetLastError();
    trace_failure("CloseHandle", error);
}

// A file that nobody else may open meanwhile, and that the system takes away with its last handle.
class open_file final : public folder_claim {
public:
    ~open_file() override {
        if (m_file != INVALID_HANDLE_VALUE) close(m_file);
    }
    bool open(const std::wstring& path) {
        m_file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        return m_file != INVALID_HANDLE_VALUE;
    }

private:
    HANDLE m_file = INVALID_HANDLE_VALUE;
};

std::wstring child(const std::string& folder, const char* name) {
    return loam::wide_text(zFSPath(folder.c_str()).GoChild(name));
}

// The runtime holds this file open, for itself alone, as long as it uses the folder.
bool runtime_uses(const std::string& folder) {
    // By a name, since the end of a temporary one might change the error that is asked for next.
    const std::wstring lock = child(folder, "lockfile");
    const HANDLE file = CreateFileW(lock.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION;
    close(file);
    return false;
}

}  // namespace

std::unique_ptr<folder_claim> folder_claim::make(const std::string& folder) {
    auto claim = std::make_unique<open_file>();
    if (!claim->open(child(folder, "pennywort.lock")) || runtime_uses(folder)) return nullptr;
    return claim;
}

// The user's own folder for temporary files gives its rights to what is made in it.
std::string make_private_folder(const std::string& name) {
    wchar_t temporary[MAX_PATH + 1];
    const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(temporary)), temporary);
    if (length == 0 || length > MAX_PATH) {
        const DWORD error = GetLastError();
        trace_failure("GetTempPathW", error);
        return {};
    }
    zString id;
    if (*zIDGenerator::GenerateUUID(id) == '\0') return {};
    zFSPath path(loam::utf8_text({temporary, length}).c_str());
    path.GoChild((name + "-" + id.CString()).c_str());
    const std::wstring wide_path = loam::wide_text(path.CString());
    // All memory that it takes comes first: a folder that was made is not left behind.
    std::string made = path.CString();
    if (CreateDirectoryW(wide_path.c_str(), nullptr)) return made;
    const DWORD error = GetLastError();
    trace_failure("CreateDirectoryW", error);
    return {};
}

}  // namespace pennywort::webdisplay
