// host/system/console_win.cpp - Windows half of host/system/console.h. Linux half:
// host/system/console_linux.cpp.
#include "host/system/console.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace pennywort::host {

namespace {

constexpr int k_output = 1;
constexpr int k_errors = 2;

std::FILE* own_stream(int standard) {
    int copy = _dup(standard);
    if (copy < 0) copy = _open("NUL", _O_WRONLY | _O_BINARY);
    _setmode(copy, _O_BINARY);
    return _fdopen(copy, "wb");
}

// A program without a console and without redirection has the descriptor, but nothing behind it.
bool is_open(int standard) { return _get_osfhandle(standard) >= 0; }

void discard(int standard) {
    const int nowhere = _open("NUL", _O_WRONLY | _O_BINARY);
    if (nowhere < 0) return;
    _dup2(nowhere, standard);
    _close(nowhere);
}

void give_back(std::FILE* stream, int standard) {
    std::fflush(stream);
    _dup2(_fileno(stream), standard);
    std::fclose(stream);
}

}  // namespace

console::console(others on_standard_error)
    : m_has_output(is_open(k_output)),
      m_output(own_stream(k_output)),
      m_errors(own_stream(k_errors)) {
    std::setvbuf(m_errors, nullptr, _IONBF, 0);  // this system knows no line buffering
    discard(k_output);
    if (on_standard_error == others::quiet) discard(k_errors);
}

console::~console() {
    give_back(m_output, k_output);
    give_back(m_errors, k_errors);
}

int console::terminal_columns() const {
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(m_errors)));
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(handle, &info)) return 0;
    return info.srWindow.Right - info.srWindow.Left + 1;
}

}  // namespace pennywort::host
