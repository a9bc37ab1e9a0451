// helper_trial_linux.cpp - Linux half of helper_trial.h. Windows half: helper_trial_win.cpp.
#include "webdisplay/helper_trial.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "core/limits.h"
#include "core/run/deadline.h"
#include "loam/thread.h"

extern "C" char** environ;

namespace pennywort::webdisplay {

namespace {

// What a process has used of the system so far.
struct process_use {
    char state = 0;
    unsigned long long ticks = 0;
    unsigned long long page_faults = 0;
};

// Fields of /proc/PID/stat, which follow the name in parentheses; the name may hold anything.
process_use use_of(pid_t process) {
    std::stringstream text;
    text << std::ifstream("/proc/" + std::to_string(process) + "/stat").rdbuf();
    const std::string line = text.str();
    const std::size_t name_end = line.rfind(')');
    if (name_end == std::string::npos) return {};
    std::istringstream fields(line.substr(name_end + 1));
    process_use use;
    fields >> use.state;
    constexpr int k_last_field = 12;
    for (int field = 1; field <= k_last_field; ++field) {
        std::string value;
        fields >> value;
        const bool is_fault = field == 7 || field == 9;
        const bool is_tick = field == 11 || field == 12;
        if (is_fault) use.page_faults += std::strtoull(value.c_str(), nullptr, 10);
        if (is_tick) use.ticks += std::strtoull(value.c_str(), nullptr, 10);
    }
    return use;
}

// One that runs, or waits for the disk, has only been given too little time.
bool stands_still(const process_use& before, const process_use& now) {
    return now.state == 'S' && before.ticks == now.ticks && before.page_faults == now.page_faults;
}

// A descriptor that goes with its owner.
class owned_descriptor {
public:
    owned_descriptor() = default;
    owned_descriptor(const owned_descriptor&) = delete;
    owned_descriptor& operator=(const owned_descriptor&) = delete;
    ~owned_descriptor() {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }
    void own(int descriptor) { m_descriptor = descriptor; }
    int get() const { return m_descriptor; }

private:
    int m_descriptor = -1;
};

// The helper while it is tried, in a process group of its own, so that one that is a script goes
// with all that it has started.
class tried_helper {
public:
    explicit tried_helper(const std::string& path) {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            m_error = errno;
            return;
        }
        owned_descriptor words_to_write;
        m_words_end.own(ends[0]);
        words_to_write.own(ends[1]);
        m_error = start(path, words_to_write.get());
    }
    tried_helper(const tried_helper&) = delete;
    tried_helper& operator=(const tried_helper&) = delete;
    ~tried_helper() {
        if (m_error != 0 || m_has_ended) return;
        kill(-m_process, SIGKILL);
        while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

    int error() const { return m_error; }
    int status() const { return m_status; }
    const std::string& words() const { return m_words; }
    process_use use() const { return use_of(m_process); }

    // A host whose own handler takes every child may have been first; then nothing is known of how
    // it ended, and the status stays 0.
    bool has_ended() {
        const pid_t ended = waitpid(m_process, &m_status, WNOHANG);
        m_has_ended = ended > 0 || (ended < 0 && errno != EINTR);
        read_words();
        return m_has_ended;
    }

private:
    int start(const std::string& path, int words) {
        std::string program = path, option(k_self_check);
        char* arguments[] = {program.data(), option.data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, words, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        const int error =
            posix_spawn(&m_process, path.c_str(), &actions, &attributes, arguments, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        return error;
    }

    // Read to the end, so that a helper with much to say does not wait for us, and kept in part.
    void read_words() {
        std::array<char, 4096> piece{};
        for (;;) {
            const ssize_t size = ::read(m_words_end.get(), piece.data(), piece.size());
            if (size < 0 && errno == EINTR) continue;
            if (size <= 0) return;
            m_words.append(piece.data(), static_cast<std::size_t>(size));
            m_words.resize(std::min(m_words.size(), k_max_helper_words));
        }
    }

    pid_t m_process = 0;
    int m_error = 0;
    owned_descriptor m_words_end;
    int m_status = 0;
    bool m_has_ended = false;
    std::string m_words;
};

helper_trial verdict_on(const tried_helper& helper) {
    const int status = helper.status();
    if (!WIFSIGNALED(status)) return verdict_on_words(helper.words());
    return {helper_end::crashed, "ended by signal " + std::to_string(WTERMSIG(status))};
}

}  // namespace

helper_trial try_helper(const std::string& path) {
    tried_helper helper(path);
    if (helper.error() != 0) return {helper_end::refused, std::strerror(helper.error())};
    const run::deadline half(k_max_helper_trial / 2);
    const run::deadline end(k_max_helper_trial);
    process_use before;
    while (!end.has_passed()) {
        if (helper.has_ended()) return verdict_on(helper);
        if (before.state == 0 && half.has_passed()) before = helper.use();
        zThread::MicroSleep(1000);
    }
    if (!stands_still(before, helper.use())) return {};
    return {helper_end::hung, "it does not end"};
}

}  // namespace pennywort::webdisplay
