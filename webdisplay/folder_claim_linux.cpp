// folder_claim_linux.cpp - Linux half of folder_claim.h. Windows half: folder_claim_win.cpp.
#include "webdisplay/folder_claim.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "core/run/environment.h"
#include "loam/path.h"

namespace pennywort::webdisplay {

namespace {

class locked_file final : public folder_claim {
public:
    ~locked_file() override {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }
    bool open(const std::string& path) {
        m_descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        return m_descriptor >= 0;
    }
    bool lock() { return flock(m_descriptor, LOCK_EX | LOCK_NB) == 0; }

private:
    int m_descriptor = -1;
};

std::string child(const std::string& folder, const char* name) {
    return zFSPath(folder.c_str()).GoChild(name);
}

std::string link_target(const std::string& path) {
    std::vector<char> target(4096);
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : "";
}

// The runtime marks a folder in use by a link to "host-pid". One left behind by a process of this
// host that is gone is stale, and the runtime removes it itself; any other one it would refuse, and
// a file of that name too.
bool runtime_uses(const std::string& folder) {
    const std::string lock = child(folder, "SingletonLock");
    struct stat status {};
    if (lstat(lock.c_str(), &status) != 0) return false;
    const std::string owner = link_target(lock);
    const std::size_t dash = owner.rfind('-');
    if (dash == std::string::npos) return true;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const long pid = std::strtol(owner.c_str() + dash + 1, nullptr, 10);
    if (owner.substr(0, dash) != host || pid <= 0) return true;
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

}  // namespace

std::unique_ptr<folder_claim> folder_claim::make(const std::string& folder) {
    auto claim = std::make_unique<locked_file>();
    if (!claim->open(child(folder, "pennywort.lock"))) return nullptr;
    if (!claim->lock() || runtime_uses(folder)) return nullptr;
    return claim;
}

std::string make_private_folder(const std::string& name) {
    const std::string temporary = run::environment_variable("TMPDIR");
    std::string path = child(temporary.empty() ? "/tmp" : temporary, (name + "-XXXXXX").c_str());
    // Without a copy of the path, which might find no memory and leave the folder behind.
    if (mkdtemp(path.data()) == nullptr) path.clear();
    return path;
}

}  // namespace pennywort::webdisplay
