// test_process.h - what tests need of the process they run in.
// Twins: test_process_linux.cpp, test_process_win.cpp.
#pragma once

#include <string>
#include <vector>

namespace test_process {

void set_variable(const char* name, const std::string& value);
void clear_variable(const char* name);

// Has the system name these as the user's folder for data and as the one for temporary files, in
// this process and in those that it starts.
void use_folders(const std::string& data, const std::string& temporary);

// Has the system tell these as the words that the process was started with, where it is the system
// that tells them.
void use_arguments(const std::vector<std::string>& words);

// Takes from a program what makes it one.
void make_unrunnable(const std::string& path);

// Path of the running program.
std::string program();

int threads();
// Open files, sockets and the like.
int descriptors();

// Marks a folder as the runtime of another program does, until this process ends.
void mark_as_used(const std::string& folder);
bool is_marked_as_used(const std::string& folder);

// Runs a command line and answers its exit code.
int run(const std::string& command);

}  // namespace test_process
