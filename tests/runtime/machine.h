// machine.h - what the tests ask of the system: processes, folders, counts of what this one holds.
// Linux only: machine_linux.cpp. The tests of the real runtime run there.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace pennywort::runtime_test {

// A process below this one.
struct process {
    int id = 0;
    std::string type;          // of the runtime's helpers: "renderer", "zygote", ...; else empty
    std::string command_line;  // its arguments, separated by blanks
};
void PrintTo(const process& one, std::ostream* out);

// Every process below this one, however deep, that has not ended (zombies have).
std::vector<process> processes_below();
std::vector<process> processes_below(const std::string& type);

// What this process holds at the moment.
struct holdings {
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t processes = 0;
    std::size_t heap_bytes = 0;      // given out by malloc
    std::size_t resident_bytes = 0;  // private to the process
};
void PrintTo(const holdings& held, std::ostream* out);
holdings current_holdings();

// CPU time that this process has used, without its children, in seconds.
double cpu_seconds();

// A new folder of its own, gone with the object.
class temporary_folder {
public:
    temporary_folder();
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;
    ~temporary_folder();

    const std::string& path() const { return m_path; }
    std::string child(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The folder of the test program, where the child process and the runtime are.
std::string program_folder();

// A program run beside the test: its standard output is read line by line, its standard error goes
// where the test's goes. It is asked to end by the end of its standard input, and killed at last.
class companion {
public:
    // `environment` holds "NAME=value" to set and "NAME" to take away. It is started in `folder`.
    companion(const std::vector<std::string>& command,
              const std::vector<std::string>& environment = {}, const std::string& folder = {});
    companion(const companion&) = delete;
    companion& operator=(const companion&) = delete;
    ~companion();

    int id() const { return m_id; }
    // The next line of its output without the line's end; false at its end, or when nothing comes
    // for 60 s.
    bool read_line(std::string& line);
    // Lines up to the first that begins with `start`, that one included; the others are appended to
    // `before` if given. Empty when the output ends first.
    std::string read_until(const std::string& start, std::string* before = nullptr);
    void write_line(const std::string& line);
    void close_input();
    // Waits until it has ended; its exit code, or minus the number of the signal that ended it.
    // It is killed after 60 s.
    int wait();

private:
    int m_id = -1;
    int m_input = -1;
    int m_output = -1;
    int m_status = 0;
    bool m_ended = false;
    std::string m_read;
};

}  // namespace pennywort::runtime_test
