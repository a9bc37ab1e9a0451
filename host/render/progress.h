// host/render/progress.h - tells the user how far a run has come: a bar on a terminal, else plain
// lines.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "core/run/clock.h"

namespace pennywort::host {

struct progress_state {
    std::uint64_t frames = 0;
    std::uint64_t total = 0;  // 0: nobody knows
    std::uint64_t repeated = 0;
    std::uint64_t dropped = 0;
    double seconds = 0;  // of output
    std::string doing;   // "page 1 of 3"
};

// One line of at most `columns` characters.
std::string progress_bar(const progress_state& state, int columns);
std::string progress_line(const progress_state& state);

class progress {
public:
    using time_point = run::monotonic_clock::time;

    // `columns` is the terminal's width, 0 if `out` is none.
    progress(std::FILE* out, int columns);
    // Takes the bar away.
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    // Shows it if the last time is long enough ago.
    void show(const progress_state& state, time_point now);
    // A whole line, clear of the bar.
    void say(const std::string& line);

private:
    void take_bar_away();

    std::FILE* const m_out;
    const int m_columns;
    bool m_has_bar = false;
    time_point m_next{};
};

}  // namespace pennywort::host
