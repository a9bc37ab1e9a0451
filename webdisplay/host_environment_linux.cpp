// host_environment_linux.cpp - Linux half of host_environment.h. Windows half:
// host_environment_win.cpp.
#include "webdisplay/host_environment.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

#include "core/run/environment.h"
#include "loam/path.h"
#include "loam/trace.h"

extern "C" char** environ;

namespace pennywort::webdisplay {

namespace {

std::string home_folder() {
    std::string home = run::environment_variable("HOME");
    if (!home.empty()) return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

struct language_row {
    std::string_view name;
    std::uint16_t primary;
};
constexpr language_row k_languages[] = {
    {"zh", 0x04}, {"cs", 0x05}, {"de", 0x07}, {"en", 0x09}, {"es", 0x0A}, {"fr", 0x0C},
    {"it", 0x10}, {"ja", 0x11}, {"ko", 0x12}, {"nl", 0x13}, {"pt", 0x16}, {"sv", 0x1D},
};
constexpr std::uint16_t k_portuguese_brazil = 1;
constexpr std::uint16_t k_other_sublanguage = 2;

// The variables in the order in which they override each other.
std::string locale_name() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        std::string value = run::environment_variable(name);
        if (!value.empty()) return value;
    }
    return {};
}

// Without waiting for the opener, which may run as long as what it opens; a thread of its own takes
// its exit status, so that no zombie is left and no child handler of the host is needed.
void reap(pid_t child) {
    std::thread([child] {
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
}

constexpr std::uint64_t k_mebibyte = 1024 * 1024;

// What a shell or a service may take from a program (ulimit), and about the least with which the
// runtime was seen to show a page of 1920x1080. With less it ends the process by a signal or with
// status 0, or loses the page's own process, and says nothing of the cause.
struct allowance {
    decltype(RLIMIT_NOFILE) resource;
    rlim_t rlimit::*bound;  // the runtime itself raises how many files are open, up to its maximum
    rlim_t unit;
    rlim_t least;
    const char* what;
    const char* command;
};
constexpr allowance k_allowances[] = {
    {RLIMIT_NOFILE, &rlimit::rlim_max, 1, 150, "files open at once", "ulimit -n"},
    {RLIMIT_FSIZE, &rlimit::rlim_cur, k_mebibyte, 8, "MiB in a file", "ulimit -f"},
    {RLIMIT_AS, &rlimit::rlim_cur, 1024 * k_mebibyte, 80, "GiB of addresses", "ulimit -v"},
};

}  // namespace

const char* child_process_name() noexcept { return "CEFChildProcess"; }

bool is_runnable(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

// The runtime keeps a socket there, whose whole path has to fit into the system's address, and ends
// the process if it does not.
std::string temporary_folder_problem() {
    constexpr std::string_view k_socket = "/org.chromium.Chromium.XXXXXX/SingletonSocket";
    const std::string named = run::environment_variable("TMPDIR");
    const std::string folder = named.empty() ? "/tmp" : named;
    const std::string remedy = "; set TMPDIR to a folder that can be written, with a short path";
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return "The folder for temporary files, " + folder + ", cannot be written" + remedy;
    }
    if (folder.size() + k_socket.size() < sizeof(sockaddr_un::sun_path)) return {};
    return "The path of the folder for temporary files, " + folder + ", is too long" + remedy;
}

std::string allowance_problem() {
    for (const allowance& one : k_allowances) {
        rlimit allowed{};
        if (getrlimit(one.resource, &allowed) != 0) continue;
        const rlim_t units = allowed.*one.bound / one.unit;
        if (units >= one.least) continue;
        return "This program may have only " + std::to_string(units) + " " + one.what +
               ", and the browser runtime needs " + std::to_string(one.least) +
               "; allow it more with " + one.command;
    }
    return {};
}

ui_language user_language() {
    const std::string name = locale_name();
    const std::string_view primary = std::string_view(name).substr(0, name.find_first_of("_.@"));
    for (const language_row& row : k_languages) {
        if (row.name != primary) continue;
        const bool is_brazil = name.starts_with("pt_BR");
        return {row.primary, is_brazil ? k_portuguese_brazil : k_other_sublanguage};
    }
    return {};
}

std::string application_data_folder() {
    std::string folder = run::environment_variable("XDG_CONFIG_HOME");
    if (folder.empty() || folder.front() != '/') {  // a relative one is to be ignored
        const std::string home = home_folder();
        if (home.empty()) return {};
        folder = zFSPath(home.c_str()).GoChild(".config");
    }
    return zDirectory::MakeSureExists(folder.c_str()) == 0 ? folder : std::string();
}

void open_in_system(const std::string& url) {
    // No shell sees the URL, and one that begins like an option is none.
    if (url.empty() || url.front() == '-') return;
    std::string program = "xdg-open";
    std::string argument = url;
    char* arguments[] = {program.data(), argument.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ);
    if (error == 0) return reap(child);
    zTraceManager::Default()->TraceNote("cWebDisplayBrowser: posix_spawnp xdg-open - failed (%s)\n",
                                        std::strerror(error));
}

}  // namespace pennywort::webdisplay
