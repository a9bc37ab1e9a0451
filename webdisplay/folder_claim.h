// folder_claim.h - the exclusive use of a folder by one process.
// Twins: folder_claim_win.cpp, folder_claim_linux.cpp.
#pragma once

#include <memory>
#include <string>

namespace pennywort::webdisplay {

class folder_claim {
public:
    // Claims an existing folder until the object goes or the process ends, however it ends. Null
    // when another process has claimed it, or a browser runtime is using it.
    static std::unique_ptr<folder_claim> make(const std::string& folder);
    virtual ~folder_claim() = default;
};

// Makes a new folder that only this user may read, for temporary files; empty if that fails.
std::string make_private_folder(const std::string& name);

}  // namespace pennywort::webdisplay
