// host/system/console_win.cpp - Windows half of host/system/console.h. Linux half:
// host/system/console_linux.cpp.
#include "host/system/console.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cerrno>
#include <system_error>

namespace pennywort::host {

namespace {

constexpr int k_output = 1;
constexpr int k_errors = 2;

[[noreturn]] void throw_failure(const char* doing) {
    throw std::system_error(errno, std::generic_category(), doing);
}

// A stream that was closed from the start is replaced by one that takes nothing.
std::FILE* own_stream(int standard) {
    int copy = _dup(standard);
    if (copy < 0) copy = _open("NUL", _O_WRONLY | _O_BINARY);
    if (copy < 0) throw_failure("cannot open NUL");
    // In text mode the system would put a byte before each line feed of a picture.
    std::FILE* const stream = _setmode(copy, _O_BINARY) != -1 ? _fdopen(copy, "wb") : nullptr;
    if (stream == nullptr) throw_failure("cannot use the standard output");
    return stream;
}

// A program without a console and without redirection has the descriptor, but nothing behind it.
bool is_open(int standard) { return _get_osfhandle(standard) >= 0; }

// Without this the browser's own lines would stand between our frames, so it may not fail.
void discard(int standard) {
    const int nowhere = _open("NUL", _O_WRONLY | _O_BINARY);
    if (nowhere < 0) throw_failure("cannot open NUL");
    if (nowhere == standard) return;  // it was closed from the start
    const bool is_discarded = _dup2(nowhere, standard) == 0 || !is_open(standard);
    const int error = errno;
    _close(nowhere);
    errno = error;
    if (!is_discarded) throw_failure("cannot discard the standard output");
}

void give_back(std::FILE* stream, int standard) {
    std::fflush(stream);
    // Where the system refuses, the output goes on taking nothing; nobody is left to be told.
    static_cast<void>(_dup2(_fileno(stream), standard));
    std::fclose(stream);
}

// Terminals of this system print such a sequence as it stands until they are asked to obey.
class obeying_terminal {
public:
    void ask(HANDLE terminal) {
        if (!GetConsoleMode(terminal, &m_before)) return;
        m_obeys = SetConsoleMode(terminal, m_before | ENABLE_PROCESSED_OUTPUT |
                                               ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
        if (m_obeys) m_terminal = terminal;
    }
    // The terminal is the shell's, too.
    void give_back() {
        if (m_obeys) SetConsoleMode(m_terminal, m_before);
        m_obeys = false;
    }
    bool obeys() const { return m_obeys; }

private:
    HANDLE m_terminal = nullptr;
    DWORD m_before = 0;
    bool m_obeys = false;
};

obeying_terminal g_errors_terminal;

HANDLE handle_of(std::FILE* stream) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

}  // namespace

console::console(others on_standard_error)
    : m_has_output(is_open(k_output)),
      m_output(own_stream(k_output)),
      m_errors(own_stream(k_errors)) {
    std::setvbuf(m_errors, nullptr, _IONBF, 0);  // this system knows no line buffering
    g_errors_terminal.ask(handle_of(m_errors));
    discard(k_output);
    if (on_standard_error == others::quiet) discard(k_errors);
}

console::~console() {
    g_errors_terminal.give_back();
    give_back(m_output, k_output);
    give_back(m_errors, k_errors);
}

bool console::is_on_terminal() const {
    DWORD mode = 0;
    return GetConsoleMode(handle_of(m_output), &mode) != FALSE;
}

int console::terminal_columns() const {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!g_errors_terminal.obeys() || !GetConsoleScreenBufferInfo(handle_of(m_errors), &info)) {
        return 0;
    }
    return info.srWindow.Right - info.srWindow.Left + 1;
}

}  // namespace pennywort::host
