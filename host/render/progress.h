// host/render/progress.h - tells the user how far a run has come: a bar on a terminal, else plain
// lines.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>

#include "core/run/clock.h"

namespace pennywort::host {

struct progress_state {
    std::uint64_t frames = 0;
    std::uint64_t total = 0;  // 0: nobody knows
    std::uint64_t repeated = 0;
    std::uint64_t dropped = 0;
    double seconds = 0;  // of output
    double rate = 0;     // frames a second lately; 0: nobody knows yet
    std::string doing;   // "page 1 of 3"
};

// "  3.0 of 20.0 s": how far a page is that runs up to where its film begins.
std::string run_up_text(std::uint64_t over, std::uint64_t first, double rate);

// How fast frames come: lately, since a page is not equally heavy everywhere.
class frame_pace {
public:
    using time_point = run::monotonic_clock::time;

    void saw(std::uint64_t frames, time_point now);
    // Frames a second; 0 until that is known.
    double per_second() const;

private:
    struct sample {
        std::uint64_t frames;
        time_point at;
    };
    std::deque<sample> m_samples;
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

    // Shows it if the last time is long enough ago. What has not changed since is no new line:
    // while a page hangs there is one that says so.
    void show(const progress_state& state, time_point now);
    // A whole line, clear of the bar.
    void say(const std::string& line);

private:
    void take_bar_away();
    void show_bar(const progress_state& state);
    void show_line(const std::string& line);
    void tell_pause(const progress_state& state, time_point now);

    std::FILE* const m_out;
    const int m_columns;
    bool m_has_bar = false;
    time_point m_next{};
    frame_pace m_pace;
    std::string m_last_what;
    time_point m_changed{};
    bool m_has_told_pause = false;
};

}  // namespace pennywort::host
