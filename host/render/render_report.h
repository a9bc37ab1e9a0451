// host/render/render_report.h - what a run tells when it has ended, for people and for programs.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/run/clock.h"
#include "host/render/page_sayings.h"
#include "host/render/recorder.h"
#include "host/render/render_options.h"
#include "host/system/outcome.h"

namespace pennywort::host {

struct render_result {
    record_counts counts;
    interval_spread intervals;
    std::uint64_t missed = 0;  // ticks that the page could not follow
    saying_counts sayings;
    long width = 0;  // of the pictures, where they are not of the size that was asked for
    long height = 0;
    std::optional<run::monotonic_clock::time::duration> first_frame;  // from the runtime's start
    std::string failure;                                              // empty if there was none
};

struct output_end {
    bool is_empty = false;  // of frames
    bool is_endless = false;
    bool is_told = false;  // the user knows already why the run ends
};

// What is wrong with an output that has come to its end; empty if nothing is.
std::string output_fault(const outcome& finished, const output_end& end);

// One object in one line, without a line end.
std::string json_report(const render_options& options, const render_result& result);

// What became of the frames, and what to do about frames that were dropped.
std::vector<std::string> summary_lines(const render_options& options, const render_result& result);

}  // namespace pennywort::host
