// host/system/child_process_linux.cpp - Linux half of host/system/child_process.h. Windows half:
// host/system/child_process_win.cpp.
#include "host/system/child_process.h"

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
#include <cstdlib>
#include <system_error>
#include <thread>

#include "core/limits.h"
#include "host/system/last_line.h"
#include "host/system/program_search.h"

// The process's variables have no declaration of their own in a header.
extern char** environ;

namespace pennywort::host {

namespace {

using clock = std::chrono::steady_clock;
using milliseconds = std::chrono::milliseconds;

constexpr int k_pipe_bytes = 1 << 20;  // fewer switches between the two processes per frame
// The child's lower priority. Frames for it may wait in our memory; the page that paints them must
// not, or its picture would falter.
constexpr int k_priority = 10;

outcome system_failure(const std::string& doing, int error) {
    return outcome::failed(doing + ": " + std::generic_category().message(error));
}

class descriptor {
public:
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

// Until the other side closes, or the child has ended and what it said has been read: what it has
// started may outlive it, and keep the other side open for ever.
void read_lines(int from, int child, last_line& lines) {
    char some[4096];
    for (std::size_t rest = k_max_bytes_after_child; rest > 0;) {
        // The child comes first: the system looks at one after the other, and what is said between
        // a look at the pipe and one at the child's end would be lost.
        std::array<pollfd, 2> news{pollfd{child, POLLIN, 0}, pollfd{from, POLLIN, 0}};
        if (::poll(news.data(), news.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (news[1].revents == 0) return;
        const ssize_t count = ::read(from, some, sizeof some);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        lines.add({some, static_cast<std::size_t>(count)});
        if (news[0].revents != 0) rest -= std::min(rest, static_cast<std::size_t>(count));
    }
}

int status_of(int waited) {
    if (WIFEXITED(waited)) return WEXITSTATUS(waited);
    return WIFSIGNALED(waited) ? 128 + WTERMSIG(waited) : -1;
}

bool is_program(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

}  // namespace

std::string find_program(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    const char* const folders = variable != nullptr ? variable : "/usr/local/bin:/usr/bin:/bin";
    return find_in_folders(folders, ':', [&](const std::string& folder) {
        const std::string path = (folder.empty() ? "." : folder) + "/" + name;
        return is_program(path) ? path : std::string();
    });
}

struct child_process::native {
    pid_t child = -1;
    descriptor end;  // readable once the child has ended
    descriptor input;
    descriptor errors;
    last_line lines;
    std::thread reader;

    bool wait_for_end(milliseconds patience) const {
        const auto last = clock::now() + patience;
        pollfd news{end.get(), POLLIN, 0};
        for (;;) {
            const auto left = std::chrono::ceil<milliseconds>(last - clock::now());
            const int got = ::poll(&news, 1, std::max(0, static_cast<int>(left.count())));
            if (got >= 0 || errno != EINTR) return got > 0;
        }
    }

    // Its status; -1 if somebody else in the process has asked for it.
    int take_status() {
        int waited = 0;
        pid_t got = 0;
        do {
            got = ::waitpid(child, &waited, 0);
        } while (got < 0 && errno == EINTR);
        child = -1;
        return got < 0 ? -1 : status_of(waited);
    }

    void end_now() {
        if (child < 0) return;
        ::kill(-child, SIGKILL);  // what it has started too
        ::kill(child, SIGKILL);   // it may have left its group
        take_status();
    }
    void end_reader() {
        if (reader.joinable()) reader.join();
    }
};

child_process::child_process() : m_native(new native) {}

child_process::~child_process() {
    m_native->end_now();
    m_native->end_reader();
}

outcome child_process::start(const std::vector<std::string>& command) {
    pipe_ends input;
    pipe_ends errors;
    if (!input.open() || !errors.open()) return system_failure("cannot make a pipe", errno);
    ::signal(SIGPIPE, SIG_IGN);
    const spawn_plan plan(input.read.get(), errors.write.get());
    const int error = plan.run(m_native->child, command);
    if (error != 0) {
        m_native->child = -1;
        return system_failure("cannot start " + command[0], error);
    }
    // The C library's own function has no C linkage in every version.
    m_native->end.reset(static_cast<int>(::syscall(SYS_pidfd_open, m_native->child, 0)));
    if (m_native->end.get() < 0) {
        const int reason = errno;
        m_native->end_now();
        return system_failure("cannot watch " + command[0], reason);
    }
    ::fcntl(input.write.get(), F_SETPIPE_SZ, k_pipe_bytes);  // a smaller pipe works too
    ::fcntl(input.write.get(), F_SETFL, O_NONBLOCK);
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(m_native->child), k_priority);
    m_native->input.reset(::fcntl(input.write.get(), F_DUPFD_CLOEXEC, 0));
    m_native->errors.reset(::fcntl(errors.read.get(), F_DUPFD_CLOEXEC, 0));
    m_native->reader = std::thread(read_lines, m_native->errors.get(), m_native->end.get(),
                                   std::ref(m_native->lines));
    return outcome::fine();
}

child_process::write_result child_process::write(const void* bytes, std::size_t count,
                                                 milliseconds patience) {
    const char* rest = static_cast<const char*>(bytes);
    while (count > 0) {
        pollfd room{m_native->input.get(), POLLOUT, 0};
        const int ready = ::poll(&room, 1, static_cast<int>(patience.count()));
        if (ready == 0) return write_result::stalled;
        if (ready < 0 && errno == EINTR) continue;
        const ssize_t taken = ::write(m_native->input.get(), rest, count);
        if (taken < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (taken < 0) return write_result::closed;
        rest += taken;
        count -= static_cast<std::size_t>(taken);
    }
    return write_result::written;
}

child_process::exit_report child_process::finish(milliseconds patience) {
    exit_report report;
    m_native->input.reset();
    report.ended = m_native->child >= 0 && m_native->wait_for_end(patience);
    if (report.ended) report.status = m_native->take_status();
    m_native->end_now();
    m_native->end_reader();
    report.last_line = m_native->lines.text();
    return report;
}

}  // namespace pennywort::host
