// cache_folder.cpp - see the header for the contract.
#include "webdisplay/cache_folder.h"

#include <filesystem>
#include <system_error>

#include "core/run/guarded.h"
#include "loam/trace.h"

namespace pennywort::webdisplay {

// By way of the other constructor, so that the private folder is removed also where memory runs out
// after it was made.
cache_folder::cache_folder(const std::string& preferred) : cache_folder() {
    if (!preferred.empty()) m_claim = folder_claim::make(preferred);
    if (m_claim) {
        m_path = preferred;
        return;
    }
    use_private_folder();
    const std::string cause =
        preferred.empty() ? "there is no folder for the cache"
                          : "the cache folder " + preferred + " is in use or cannot be written";
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowserManager: %s, this host keeps its data in %s until it ends\n",
        cause.c_str(), m_path.empty() ? "memory" : m_path.c_str());
}

void cache_folder::use_private_folder() {
    m_path = make_private_folder("TarnhelmCache");
    m_is_private = !m_path.empty();
}

// An empty one, as after a start that failed, needs no look into it: the standard library ends the
// process where memory runs out in that.
void cache_folder::remove_private_folder() const {
    const std::filesystem::path folder(reinterpret_cast<const char8_t*>(m_path.c_str()));
    std::error_code error;
    if (!std::filesystem::remove(folder, error)) std::filesystem::remove_all(folder, error);
}

// Once more where there was no memory for it: what failed before may have given some back.
cache_folder::~cache_folder() {
    const auto remove = [this] {
        return run::guarded("cWebDisplayCEFBrowserManager", "the end of its private folder",
                            [this] { remove_private_folder(); });
    };
    if (m_is_private && !remove()) remove();
}

}  // namespace pennywort::webdisplay
