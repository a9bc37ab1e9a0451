// host/system/running_child_linux.cpp - Linux half of host/system/running_child.h. Windows half:
// host/system/running_child_win.cpp.
#include "host/system/running_child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "core/run/deadline.h"
#include "core/text/numbers.h"

// The process's variables have no declaration of their own in a header.
extern char** environ;

namespace pennywort::host {

namespace {

using milliseconds = std::chrono::milliseconds;

constexpr int k_pipe_bytes = 1 << 20;  // fewer switches between the two processes per frame
// The child runs below the page. Frames for the child can wait in our memory; a page that has to
// wait for the processor paints too few of them.
constexpr int k_priority = 10;

outcome system_failure(const std::string& doing, int error) {
    return outcome::failed(doing + ": " + std::generic_category().message(error));
}

class descriptor {
public:
    descriptor() = default;
    descriptor& operator=(descriptor&& other) noexcept {
        reset(std::exchange(other.m_value, -1));
        return *this;
    }
    ~descriptor() { reset(); }
    int get() const { return m_value; }
    void reset(int value = -1) {
        if (m_value >= 0) ::close(m_value);
        m_value = value;
    }

private:
    int m_value = -1;
};

struct pipe_ends {
    descriptor read;
    descriptor write;

    bool open() {
        int both[2];
        if (::pipe2(both, O_CLOEXEC) != 0) return false;
        read.reset(both[0]);
        write.reset(both[1]);
        return true;
    }
};

// What the child begins with: our pipes as its input and error output, a process group of its own,
// and the signals as a program expects them, although we ignore the one of a closed pipe.
class spawn_plan {
public:
    spawn_plan(int input, int errors) {
        ::posix_spawn_file_actions_init(&m_files);
        ::posix_spawn_file_actions_adddup2(&m_files, input, STDIN_FILENO);
        ::posix_spawn_file_actions_addopen(&m_files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_adddup2(&m_files, errors, STDERR_FILENO);
        ::posix_spawnattr_init(&m_attributes);
        sigset_t usual;
        ::sigemptyset(&usual);
        ::posix_spawnattr_setsigmask(&m_attributes, &usual);
        for (int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) ::sigaddset(&usual, number);
        ::posix_spawnattr_setsigdefault(&m_attributes, &usual);
        ::posix_spawnattr_setpgroup(&m_attributes, 0);
        ::posix_spawnattr_setflags(
            &m_attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~spawn_plan() {
        ::posix_spawnattr_destroy(&m_attributes);
        ::posix_spawn_file_actions_destroy(&m_files);
    }
    spawn_plan(const spawn_plan&) = delete;
    spawn_plan& operator=(const spawn_plan&) = delete;

    int run(pid_t& child, const std::vector<std::string>& command) const {
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const auto& argument : command)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        return ::posix_spawn(&child, arguments[0], &m_files, &m_attributes, arguments.data(),
                             environ);
    }

private:
    posix_spawn_file_actions_t m_files;
    posix_spawnattr_t m_attributes;
};

int status_of(int waited) {
    if (WIFEXITED(waited)) return WEXITSTATUS(waited);
    return WIFSIGNALED(waited) ? 128 + WTERMSIG(waited) : -1;
}

// From the system's line of one process: the processor time that it has taken, with the children
// that it has waited for. Nothing where it is of another group.
std::uint64_t work_in(const std::string& line, pid_t group) {
    // Behind the name, which may have any characters in it: state, parent, group; and the four
    // times as the 12th to the 15th of these.
    std::istringstream rest(line.substr(std::min(line.rfind(')') + 1, line.size())));
    std::string word;
    std::uint64_t work = 0;
    for (int i = 1; i <= 15 && rest >> word; ++i) {
        if (i == 3 && word != std::to_string(group)) return 0;
        if (i >= 12) work += text::whole<std::uint64_t>(word).value_or(0);
    }
    return work;
}

}  // namespace

struct running_child::native {
    pid_t child = -1;
    descriptor end;  // readable once the child has ended
    descriptor input;
    descriptor errors;
};

running_child::running_child() : m_native(new native) {}

running_child::~running_child() = default;

outcome running_child::launch(const std::vector<std::string>& command) {
    pipe_ends input;
    pipe_ends errors;
    if (!input.open() || !errors.open()) return system_failure("cannot make a pipe", errno);
    ::signal(SIGPIPE, SIG_IGN);
    const spawn_plan plan(input.read.get(), errors.write.get());
    const int error = plan.run(m_native->child, command);
    if (error != 0) return system_failure("cannot start " + command[0], error);
    // The C library's own function has no C linkage in every version.
    m_native->end.reset(static_cast<int>(::syscall(SYS_pidfd_open, m_native->child, 0)));
    if (m_native->end.get() < 0) {
        const int reason = errno;
        end_now();
        return system_failure("cannot watch " + command[0], reason);
    }
    ::fcntl(input.write.get(), F_SETPIPE_SZ, k_pipe_bytes);  // a smaller pipe works too
    ::fcntl(input.write.get(), F_SETFL, O_NONBLOCK);
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(m_native->child), k_priority);
    m_native->input = std::move(input.write);
    m_native->errors = std::move(errors.read);
    return outcome::fine();
}

void running_child::read_errors(last_line& lines) {
    char some[4096];
    for (std::size_t rest = k_max_bytes_after_child; rest > 0;) {
        // The child's end comes first. The system looks at one after the other: with the pipe
        // first, words that arrive between the two looks would be lost.
        std::array<pollfd, 2> news{pollfd{m_native->end.get(), POLLIN, 0},
                                   pollfd{m_native->errors.get(), POLLIN, 0}};
        if (::poll(news.data(), news.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (news[1].revents == 0) return;
        const ssize_t count = ::read(m_native->errors.get(), some, sizeof some);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        lines.add({some, static_cast<std::size_t>(count)});
        if (news[0].revents != 0) rest -= std::min(rest, static_cast<std::size_t>(count));
    }
}

child_process::write_result running_child::write_some(const char* bytes, std::size_t count,
                                                      milliseconds patience, std::size_t& taken) {
    for (;;) {
        pollfd room{m_native->input.get(), POLLOUT, 0};
        const int ready = ::poll(&room, 1, static_cast<int>(patience.count()));
        if (ready == 0) return child_process::write_result::stalled;
        if (ready < 0 && errno == EINTR) continue;
        const ssize_t written = ::write(m_native->input.get(), bytes, count);
        if (written < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (written < 0) return child_process::write_result::closed;
        taken = static_cast<std::size_t>(written);
        return child_process::write_result::written;
    }
}

void running_child::close_input() { m_native->input.reset(); }

bool running_child::wait_for_end(milliseconds patience) const {
    const run::deadline last(patience);
    pollfd news{m_native->end.get(), POLLIN, 0};
    for (;;) {
        const int got = ::poll(&news, 1, static_cast<int>(last.left_ms()));
        if (got >= 0 || errno != EINTR) return got > 0;
    }
}

// A program found by its name may be a small one that has started the real one.
std::chrono::microseconds running_child::work_done() const {
    namespace fs = std::filesystem;
    std::uint64_t work = 0;
    std::error_code error;
    for (fs::directory_iterator one("/proc", error), end; !error && one != end;
         one.increment(error)) {
        std::string line;
        std::getline(std::ifstream(one->path() / "stat"), line);
        work += work_in(line, m_native->child);
    }
    return std::chrono::microseconds(work * 1'000'000 /
                                     static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK)));
}

// The system does not return it again if somebody else in the process has asked for it first.
int running_child::take_status() {
    int waited = 0;
    pid_t got = 0;
    do {
        got = ::waitpid(m_native->child, &waited, 0);
    } while (got < 0 && errno == EINTR);
    return got < 0 ? -1 : status_of(waited);
}

void running_child::end_now() {
    ::kill(-m_native->child, SIGKILL);  // what it has started too
    ::kill(m_native->child, SIGKILL);   // it may have left its group
    take_status();
}

}  // namespace pennywort::host
