// host/render/render_report.cpp - see the header for the contract.
#include "host/render/render_report.h"

#include <cstdio>
#include <limits>

#include "host/app/json.h"

namespace pennywort::host {

namespace {

double seconds_of(run::monotonic_clock::time::duration time) {
    return std::chrono::duration<double>(time).count();
}

double per_second(std::uint64_t count, double seconds) {
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

std::string rounded(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string count_of(std::uint64_t count, const char* thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

// Of a fill and its key both.
std::string output_name(const render_options& options) {
    return options.output.path + (options.key ? " and " + options.key->path : "");
}

// Two frames of the page become one of an interlaced film.
std::string frames_of(const render_options& options, const record_counts& counts) {
    std::string text = count_of(counts.frames, "frame");
    if (options.format.is_interlaced) {
        text += " of the page, " + std::to_string((counts.frames + 1) / 2) + " of the film";
    }
    return text;
}

// Of one picture it only counts which one it is.
std::string picture_line(const render_options& options, const render_result& result) {
    const long width = result.width > 0 ? result.width : options.format.width;
    const long height = result.height > 0 ? result.height : options.format.height;
    const std::string line =
        output_name(options) + ": " + std::to_string(width) + "x" + std::to_string(height);
    const std::uint64_t last = result.counts.frames - 1;
    if (options.clock != page_clock::own) {
        return line + (last > 0 ? ", the last of " + count_of(last + 1, "frame") : "");
    }
    const auto at = options.format.rate.time_of(options.first_frame + last);
    return line + ", the page at " + rounded(seconds_of(at), 3) + " s of its time";
}

// How much of the day a film took says whether a batch of them is done by the morning.
std::string exact_line(const render_options& options, const record_counts& counts, double seconds) {
    const bool measuring = options.output.kind == output_kind::none;
    const double length = static_cast<double>(counts.frames) / options.format.rate.value();
    return (measuring ? "measured: " : output_name(options) + ": ") + frames_of(options, counts) +
           ", each at its moment; " + rounded(seconds, 2) + " s for " + rounded(length, 2) +
           " s of film, " + rounded(seconds > 0 ? length / seconds : 0, 2) + " times real time; " +
           count_of(counts.repeated, "frame") + " the same as the one before";
}

// In the day's time.
std::vector<std::string> live_lines(const render_options& options, const render_result& result) {
    const auto& counts = result.counts;
    const double seconds = seconds_of(counts.counted);
    const bool measuring = options.output.kind == output_kind::none;
    std::vector<std::string> lines{
        (measuring ? "measured: " : output_name(options) + ": ") + frames_of(options, counts) +
        ", " + rounded(seconds, 2) + " s, " + rounded(per_second(counts.painted, seconds), 2) +
        " pictures a second of " + rounded(options.format.rate.value(), 2) + "; " +
        count_of(counts.repeated, "frame") + " the same as the one before; the page missed " +
        count_of(result.missed, "tick")};
    if (counts.dropped > 0 && !measuring) {
        lines.push_back("dropped " + count_of(counts.dropped, "picture") +
                        ", since writing could not keep up: a smaller --size or a lower --fps "
                        "helps");
    }
    return lines;
}

std::vector<std::string> result_lines(const render_options& options, const render_result& result) {
    if (is_single_picture(options.output.kind)) return {picture_line(options, result)};
    if (options.clock != page_clock::own) return live_lines(options, result);
    return {exact_line(options, result.counts, seconds_of(result.counts.counted))};
}

}  // namespace

// A file without a frame cannot be completed, and the user may know already why it has none.
std::string output_fault(const outcome& finished, const output_end& end) {
    if (end.is_empty && end.is_told) return {};
    if (finished.ok()) return end.is_empty ? "the page has painted nothing" : "";
    const bool is_closed = finished.what() == outcome::kind::reader_closed;
    return is_closed && end.is_endless ? "" : finished.text();
}

std::string json_report(const render_options& options, const render_result& result) {
    const double seconds = seconds_of(result.counts.counted);
    const double no_number = std::numeric_limits<double>::quiet_NaN();
    json line = {
        {"painted", result.counts.painted},
        {"repeated", result.counts.repeated},
        {"dropped", result.counts.dropped},
        {"unchanged", result.counts.unchanged},
        {"missed", result.missed},
        {"frames", result.counts.frames},
        {"first_frame_ms",
         rounded_to(result.first_frame ? seconds_of(*result.first_frame) * 1000 : no_number, 1)},
        {"seconds", rounded_to(seconds, 3)},
        {"width", result.width > 0 ? result.width : options.format.width},
        {"height", result.height > 0 ? result.height : options.format.height},
        {"fps", rounded_to(options.format.rate.value(), 3)},
        {"painted_fps", rounded_to(per_second(result.counts.painted, seconds), 2)},
        {"interval_p50_ms", rounded_to(result.intervals.milliseconds_at(0.50), 1)},
        {"interval_p99_ms", rounded_to(result.intervals.milliseconds_at(0.99), 1)},
        {"page_errors", result.sayings.errors + result.sayings.rejections},
        {"failed_resources", result.sayings.failed_resources},
        {"console_errors", result.sayings.console_errors},
        {"pages", options.urls.size()},
        {"output", options.output.path},
    };
    if (!result.failure.empty()) line["failure"] = result.failure;
    return json_text(line);
}

std::vector<std::string> summary_lines(const render_options& options, const render_result& result) {
    std::vector<std::string> lines;
    // After a failure it would read as if all were well.
    if (result.counts.frames > 0 && result.failure.empty() && !options.is_quiet) {
        lines = result_lines(options, result);
    }
    const std::string said = result.sayings.text();
    if (!said.empty()) {
        lines.push_back("of the page: " + said +
                        (options.verbose ? "" : "; --verbose shows each with its place"));
    }
    return lines;
}

}  // namespace pennywort::host
