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
int exit_code(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

}  // namespace test_process
