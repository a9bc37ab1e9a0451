// host/system/console.h - the program's own standard output and error output, kept apart from what
// the browser runtime writes there. The system's half is console_linux.cpp or console_win.cpp.
#pragma once

#include <cstdio>

namespace pennywort::host {

// One per process. Takes both outputs for itself: what anything else in the process, or a program
// that it starts, writes to standard output is discarded from then on, and with `quiet` so is what
// goes to standard error. Without this, the runtime's own lines would stand in the film of a pipe,
// and its reader would wait for the last helper of the runtime. Writing to a closed pipe, or beyond
// what a file may hold, no longer ends the process.
class console {
public:
    enum class others { quiet, heard };

    explicit console(others on_standard_error);
    // Gives both back.
    ~console();
    console(const console&) = delete;
    console& operator=(const console&) = delete;

    std::FILE* output() const { return m_output; }
    // False if standard output was closed from the start: what is written to output() is refused
    // then, or lost where the system has nothing that refuses.
    bool has_output() const { return m_has_output; }
    // Whether output() goes to a terminal, which obeys some of the characters that it gets.
    bool is_on_terminal() const;
    std::FILE* errors() const { return m_errors; }
    // The width of the terminal that errors() goes to, in characters; 0 if it goes elsewhere, or to
    // one that does not obey the sequences of characters that take a line away.
    int terminal_columns() const;

private:
    const bool m_has_output;
    std::FILE* m_output;
    std::FILE* m_errors;
};

}  // namespace pennywort::host
