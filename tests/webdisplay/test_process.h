// test_process.h - what tests need of the process they run in.
// Twins: test_process_linux.cpp, test_process_win.cpp.
#pragma once

#include <string>

namespace test_process {

void set_variable(const char* name, const std::string& value);
void clear_variable(const char* name);

// Path of the running program.
std::string program();

int threads();
// Open files, sockets and the like.
int descriptors();

// The exit code in what std::system answers.
int exit_code(int status);

}  // namespace test_process
