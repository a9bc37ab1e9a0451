// test_process_linux.cpp - Linux half of test_process.h. Windows half: test_process_win.cpp.
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "tests/webdisplay/test_process.h"

namespace test_process {

namespace {

int entries(const char* folder) {
    const std::filesystem::directory_iterator first(folder);
    return static_cast<int>(std::distance(begin(first), end(first)));
}

}  // namespace

void set_variable(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }
void clear_variable(const char* name) { unsetenv(name); }
std::string program() { return std::filesystem::read_symlink("/proc/self/exe").string(); }
int threads() { return entries("/proc/self/task"); }
int descriptors() { return entries("/proc/self/fd"); }

void use_folders(const std::string& data, const std::string& temporary) {
    set_variable("XDG_CONFIG_HOME", data);
    set_variable("TMPDIR", temporary);
}
void use_arguments(const std::vector<std::string>&) {}

void make_unrunnable(const std::string& path) {
    using std::filesystem::perms;
    std::filesystem::permissions(path, perms::owner_read | perms::owner_write);
}

void mark_as_used(const std::string& folder) {
    std::filesystem::create_symlink("another-machine-1", folder + "/SingletonLock");
}
bool is_marked_as_used(const std::string& folder) {
    return std::filesystem::is_symlink(folder + "/SingletonLock");
}

int run(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace test_process
