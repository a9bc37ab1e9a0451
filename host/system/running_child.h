// host/system/running_child.h - the steps of child_process that each system does in its own way.
// The system's half is running_child_linux.cpp or running_child_win.cpp.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/system/child_process.h"
#include "host/system/last_line.h"
#include "host/system/outcome.h"

namespace pennywort::host {

// One program. child_process keeps the order: nothing else before launch has succeeded, and
// take_status and end_now only while the program has not been ended by one of them.
class running_child {
public:
    running_child();
    ~running_child();
    running_child(const running_child&) = delete;
    running_child& operator=(const running_child&) = delete;

    // After a failure no program is left running.
    outcome launch(const std::vector<std::string>& command);

    // Adds what the program says on standard error. Returns once the program has ended and its
    // words are read: what it has started may outlive it and keep the pipe open for ever. On a
    // thread of its own.
    void read_errors(last_line& lines);

    // Waits at most `patience` for the pipe and gives it some of the bytes; `taken` says how many.
    child_process::write_result write_some(const char* bytes, std::size_t count,
                                           std::chrono::milliseconds patience, std::size_t& taken);
    void close_input();

    // Whether the program has ended within `patience`.
    bool wait_for_end(std::chrono::milliseconds patience) const;
    // The processor time that it has taken so far, with what it has started; as fine as the system
    // counts it.
    std::chrono::microseconds work_done() const;
    // The status of a program that has ended; -1 if the system does not tell it.
    int take_status();
    // Ends the program, with what it has started, and waits for that.
    void end_now();

private:
    struct native;
    std::unique_ptr<native> m_native;
};

}  // namespace pennywort::host
