// machine_linux.cpp - see machine.h for the contract.
#include "machine.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

extern "C" char** environ;

namespace pennywort::runtime_test {

namespace {

constexpr int k_bound_ms = 60'000;

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<int> process_ids() {
    std::vector<int> ids;
    DIR* folder = opendir("/proc");
    while (const dirent* entry = folder ? readdir(folder) : nullptr) {
        if (const int id = std::atoi(entry->d_name); id > 0) ids.push_back(id);
    }
    if (folder) closedir(folder);
    return ids;
}

// Parent of a process that has not ended; 0 for one that has.
int parent_of(int id) {
    const std::string status = read_file("/proc/" + std::to_string(id) + "/stat");
    const std::size_t name_end = status.rfind(')');
    if (name_end == std::string::npos || name_end + 4 > status.size()) return 0;
    const char state = status[name_end + 2];
    if (state == 'Z' || state == 'X') return 0;
    return std::atoi(status.c_str() + name_end + 4);
}

bool is_below(int id, int ancestor) {
    for (int parent = parent_of(id); parent > 1; parent = parent_of(parent)) {
        if (parent == ancestor) return true;
    }
    return false;
}

process describe(int id) {
    std::string line = read_file("/proc/" + std::to_string(id) + "/cmdline");
    std::replace(line.begin(), line.end(), '\0', ' ');
    constexpr std::string_view k_type = "--type=";
    std::string type;
    if (const std::size_t at = line.find(k_type); at != std::string::npos) {
        type = line.substr(at + k_type.size());
        type = type.substr(0, type.find(' '));
    }
    return {id, type, line};
}

std::size_t entries(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                                  std::filesystem::directory_iterator()));
}

std::size_t private_bytes() {
    std::istringstream lines(read_file("/proc/self/smaps_rollup"));
    std::size_t kilobytes = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("Private_")) continue;
        kilobytes += std::strtoul(line.c_str() + line.find(':') + 1, nullptr, 10);
    }
    return kilobytes * 1024;
}

std::vector<std::string> environment_with(const std::vector<std::string>& changes) {
    std::vector<std::string> all;
    const auto changed = [&](std::string_view entry) {
        const std::string_view name = entry.substr(0, entry.find('='));
        return std::any_of(changes.begin(), changes.end(), [name](const std::string& change) {
            return std::string_view(change).substr(0, change.find('=')) == name;
        });
    };
    for (char** entry = environ; *entry; ++entry) {
        if (!changed(*entry)) all.emplace_back(*entry);
    }
    for (const std::string& change : changes) {
        if (change.find('=') != std::string::npos) all.push_back(change);
    }
    return all;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (std::string& text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

}  // namespace

void PrintTo(const process& one, std::ostream* out) {
    *out << one.id << " (" << one.type << ") " << one.command_line.substr(0, 120);
}

std::vector<process> processes_below() {
    std::vector<process> found;
    for (const int id : process_ids()) {
        if (is_below(id, getpid())) found.push_back(describe(id));
    }
    return found;
}

std::vector<process> processes_below(const std::string& type) {
    std::vector<process> found = processes_below();
    std::erase_if(found, [&](const process& one) { return one.type != type; });
    return found;
}

void PrintTo(const holdings& held, std::ostream* out) {
    *out << held.threads << " threads, " << held.descriptors << " descriptors, " << held.processes
         << " processes, " << held.heap_bytes / 1024 << " KiB given out by malloc, "
         << held.resident_bytes / 1024 << " KiB resident";
}

holdings current_holdings() {
    holdings held;
    held.threads = entries("/proc/self/task");
    held.descriptors = entries("/proc/self/fd");
    held.processes = processes_below().size();
    held.heap_bytes = mallinfo2().uordblks;
    held.resident_bytes = private_bytes();
    return held;
}

double cpu_seconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

temporary_folder::temporary_folder() {
    std::string path = (std::filesystem::temp_directory_path() / "runtime-test-XXXXXX").string();
    if (!mkdtemp(path.data())) throw std::runtime_error("mkdtemp " + path + " failed");
    m_path = path;
}

temporary_folder::~temporary_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string program_folder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

companion::companion(const std::vector<std::string>& command,
                     const std::vector<std::string>& environment, const std::string& folder) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for a companion program");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = environment_with(environment);
    const int error = posix_spawnp(&m_id, command[0].c_str(), &actions, nullptr,
                                   pointers(arguments).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    m_input = input[1];
    m_output = output[0];
    if (error != 0) throw std::runtime_error(command[0] + ": " + std::strerror(error));
}

companion::~companion() {
    close_input();
    wait();
    ::close(m_output);
}

bool companion::read_line(std::string& line) {
    for (;;) {
        if (const std::size_t end = m_read.find('\n'); end != std::string::npos) {
            line = m_read.substr(0, end);
            m_read.erase(0, end + 1);
            return true;
        }
        pollfd readable{m_output, POLLIN, 0};
        if (poll(&readable, 1, k_bound_ms) <= 0) return false;
        char bytes[4096];
        const ssize_t count = ::read(m_output, bytes, sizeof bytes);
        if (count <= 0) return false;
        m_read.append(bytes, static_cast<std::size_t>(count));
    }
}

std::string companion::read_until(const std::string& start, std::string* before) {
    for (std::string line; read_line(line);) {
        if (line.starts_with(start)) return line;
        if (before) *before += line + "\n";
    }
    return {};
}

void companion::write_line(const std::string& line) {
    const std::string text = line + "\n";
    if (::write(m_input, text.data(), text.size()) < 0) close_input();
}

void companion::close_input() {
    if (m_input >= 0) ::close(m_input);
    m_input = -1;
}

int companion::wait() {
    int raw = 0;
    for (int waited = 0; !m_ended && m_id > 0; waited += 10) {
        const pid_t ended = waitpid(m_id, &raw, WNOHANG);
        m_ended = ended != 0;
        if (ended == m_id) m_status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
        if (!m_ended && waited == k_bound_ms) kill(m_id, SIGKILL);
        if (!m_ended) usleep(10'000);
    }
    return m_status;
}

}  // namespace pennywort::runtime_test
