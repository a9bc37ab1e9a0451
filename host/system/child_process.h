// host/system/child_process.h - runs another program and feeds its standard input.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/system/outcome.h"

namespace pennywort::host {

// Used by one thread at a time.
class child_process {
public:
    child_process();
    // Ends the program at once if it is still running, with what it has started, and waits for
    // that.
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    // `command` is the program's path and its arguments. Its output is discarded; of what it says
    // on standard error the first and the last line are kept. It runs below our own priority. It is
    // not reached by what is typed at our terminal: our Ctrl-C must not cut off a file that we are
    // about to complete. `report` is the name of a number that the program reports there, in lines
    // such as "frame=12", which are no words of its then; empty: it reports nothing.
    outcome start(const std::vector<std::string>& command, const std::string& report = {});

    enum class write_result {
        written,
        closed,   // the program takes no more: it has ended, or is about to
        stalled,  // it has taken nothing for `longest_rest`, and done next to nothing; or not all
                  // within `patience`
    };
    // However long it takes the program, as long as it works; see finish_at_its_pace.
    write_result write(const void* bytes, std::size_t count,
                       std::chrono::milliseconds longest_rest);
    // In `patience` at most, even where it works.
    write_result write_within(const void* bytes, std::size_t count,
                              std::chrono::milliseconds patience);

    struct exit_report {
        // By itself, within `patience`; else it has been ended, with what it has started.
        bool ended = false;
        int status = -1;  // its exit status; 128 and the signal's number if a signal ended it
        std::string first_line;
        std::string last_line;
        // What it has reported last; 0 where it has reported other numbers only.
        std::optional<std::uint64_t> reported;
    };
    // Ends the program's input and waits for its end. Once. What it has started and left behind is
    // not waited for.
    exit_report finish(std::chrono::milliseconds patience);
    // The same, however long it takes the program, as long as it works: it is ended when it, and
    // what it has started, has taken next to none of the processor for `longest_rest`, which is
    // found out within twice that time.
    exit_report finish_at_its_pace(std::chrono::milliseconds longest_rest);

private:
    exit_report report_of_end(bool has_ended);

    struct state;
    std::unique_ptr<state> m_state;
};

}  // namespace pennywort::host
