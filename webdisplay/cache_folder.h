// cache_folder.h - the folder that the runtime keeps its data in.
#pragma once

#include <memory>
#include <string>

#include "webdisplay/folder_claim.h"

namespace pennywort::webdisplay {

// The runtime refuses a folder that another process is using, while two hosts on one machine are
// everyday life. So the first host gets the user's folder, and any further one a private folder
// that is removed with this object.
class cache_folder {
public:
    // Claims `preferred`, which exists, or makes a private folder if it is in use; empty stands for
    // no folder to prefer.
    explicit cache_folder(const std::string& preferred);
    cache_folder(const cache_folder&) = delete;
    cache_folder& operator=(const cache_folder&) = delete;
    ~cache_folder();

    // Empty if there is none.
    const std::string& path() const { return m_path; }
    bool is_private() const { return m_is_private; }

private:
    cache_folder() = default;
    void use_private_folder();
    void remove_private_folder() const;

    std::unique_ptr<folder_claim> m_claim;
    std::string m_path;
    bool m_is_private = false;
};

}  // namespace pennywort::webdisplay
