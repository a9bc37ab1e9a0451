// host/system/console_linux.cpp - Linux half of host/system/console.h. Windows half:
// host/system/console_win.cpp.
#include "host/system/console.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace pennywort::host {

namespace {

constexpr int k_usual_columns = 80;
constexpr int k_first_free = 3;  // behind the three standard descriptors

// A copy of the descriptor that no program we start inherits. A stream that was closed from the
// start stands for one that takes nothing.
std::FILE* own_stream(int standard) {
    int copy = ::fcntl(standard, F_DUPFD_CLOEXEC, k_first_free);
    if (copy < 0) copy = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    return ::fdopen(copy, "wb");
}

void discard(int standard) {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    ::dup2(nowhere, standard);
    if (nowhere != standard) ::close(nowhere);
}

void give_back(std::FILE* stream, int standard) {
    std::fflush(stream);
    ::dup2(::fileno(stream), standard);
    std::fclose(stream);
}

}  // namespace

console::console(others on_standard_error)
    : m_has_output(::fcntl(STDOUT_FILENO, F_GETFD) >= 0),
      m_output(own_stream(STDOUT_FILENO)),
      m_errors(own_stream(STDERR_FILENO)) {
    std::setvbuf(m_errors, nullptr, _IOLBF, BUFSIZ);
    // A write that fails tells so; these would end the process before.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    discard(STDOUT_FILENO);
    if (on_standard_error == others::quiet) discard(STDERR_FILENO);
}

console::~console() {
    give_back(m_output, STDOUT_FILENO);
    give_back(m_errors, STDERR_FILENO);
}

int console::terminal_columns() const {
    if (!::isatty(::fileno(m_errors))) return 0;
    winsize size{};
    if (::ioctl(::fileno(m_errors), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return k_usual_columns;
    }
    return size.ws_col;
}

}  // namespace pennywort::host
