// host/system/console_linux.cpp - Linux half of host/system/console.h. Windows half:
// host/system/console_win.cpp.
#include "host/system/console.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace pennywort::host {

namespace {

constexpr int k_usual_columns = 80;
constexpr int k_first_free = 3;  // behind the three standard descriptors

[[noreturn]] void throw_failure(const char* doing) {
    throw std::system_error(errno, std::generic_category(), doing);
}

// Never in the place of a closed standard descriptor: what is written there is discarded.
int opened_behind_the_standard_ones(const char* path) {
    const int opened = ::open(path, O_WRONLY | O_CLOEXEC);
    if (opened < 0 || opened >= k_first_free) return opened;
    const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, k_first_free);
    ::close(opened);
    return moved;
}

// A copy of the descriptor that no program we start inherits. One that was closed from the start is
// replaced by one that refuses each write: what is written to it must not be lost without a word.
std::FILE* own_stream(int standard) {
    int copy = ::fcntl(standard, F_DUPFD_CLOEXEC, k_first_free);
    if (copy < 0) copy = opened_behind_the_standard_ones("/dev/full");
    if (copy < 0) copy = opened_behind_the_standard_ones("/dev/null");
    std::FILE* const stream = copy >= 0 ? ::fdopen(copy, "wb") : nullptr;
    if (stream == nullptr) throw_failure("cannot use the standard output");
    return stream;
}

// Without this the browser's own lines would stand between our frames, so it may not fail.
void discard(int standard) {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) throw_failure("cannot open /dev/null");
    if (nowhere == standard) return;  // it was closed from the start
    const bool is_discarded = ::dup2(nowhere, standard) == standard;
    const int error = errno;
    ::close(nowhere);
    errno = error;
    if (!is_discarded) throw_failure("cannot discard the standard output");
}

void give_back(std::FILE* stream, int standard) {
    std::fflush(stream);
    // Where the system refuses, the output goes on taking nothing; nobody is left to be told.
    static_cast<void>(::dup2(::fileno(stream), standard));
    std::fclose(stream);
}

}  // namespace

console::console(others on_standard_error)
    : m_has_output(::fcntl(STDOUT_FILENO, F_GETFD) >= 0),
      m_output(own_stream(STDOUT_FILENO)),
      m_errors(own_stream(STDERR_FILENO)) {
    std::setvbuf(m_errors, nullptr, _IOLBF, BUFSIZ);
    // A write reports its failure; these signals would end the process first.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    discard(STDOUT_FILENO);
    if (on_standard_error == others::quiet) discard(STDERR_FILENO);
}

console::~console() {
    give_back(m_output, STDOUT_FILENO);
    give_back(m_errors, STDERR_FILENO);
}

bool console::is_on_terminal() const { return ::isatty(::fileno(m_output)) != 0; }

int console::terminal_columns() const {
    if (!::isatty(::fileno(m_errors))) return 0;
    winsize size{};
    if (::ioctl(::fileno(m_errors), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return k_usual_columns;
    }
    return size.ws_col;
}

}  // namespace pennywort::host
