// host/render/progress.cpp - see the header for the contract.
#include "host/render/progress.h"

#include <algorithm>
#include <cmath>

#include "host/app/terminal_text.h"

namespace pennywort::host {

namespace {

using namespace std::chrono_literals;

constexpr auto k_bar_interval = 100ms;
constexpr auto k_line_interval = 1s;
constexpr auto k_pace_window = 10s;
constexpr auto k_pace_known_after = 500ms;
constexpr auto k_pause_told_after = 5s;
constexpr int k_longest_bar = 30;
constexpr int k_shortest_bar = 5;

std::string one_decimal(double value) {
    const auto tenths = static_cast<long long>(value * 10);
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string time_text(double seconds) {
    const auto whole = static_cast<long long>(std::min(std::ceil(seconds), 1e9));
    if (whole < 60) return std::to_string(whole) + " s";
    if (whole < 3600)
        return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
    return std::to_string(whole / 3600) + " h " + std::to_string(whole / 60 % 60) + " min";
}

std::string pace_text(const progress_state& state) {
    if (state.rate <= 0) return {};
    std::string text = "  " + std::to_string(std::llround(state.rate)) + " a second";
    if (state.total <= state.frames) return text;
    const auto left = static_cast<double>(state.total - state.frames);
    return text + "  " + time_text(left / state.rate) + " left";
}

std::string frames_text(const progress_state& state) {
    std::string text = std::to_string(state.frames);
    if (state.total > 0) text += "/" + std::to_string(state.total);
    text += " frames  " + one_decimal(state.seconds) + " s" + pace_text(state);
    if (state.repeated > 0) text += "  " + std::to_string(state.repeated) + " repeated";
    if (state.dropped > 0) text += "  " + std::to_string(state.dropped) + " dropped";
    return text;
}

std::uint64_t part_of(std::uint64_t whole, const progress_state& state) {
    return std::min(state.frames, state.total) * whole / state.total;
}

}  // namespace

void frame_pace::saw(std::uint64_t frames, time_point now) {
    m_samples.push_back({frames, now});
    while (m_samples.size() > 2 && now - m_samples[1].at >= k_pace_window) m_samples.pop_front();
}

double frame_pace::per_second() const {
    if (m_samples.empty()) return 0;
    const auto time = m_samples.back().at - m_samples.front().at;
    if (time < k_pace_known_after) return 0;
    const auto frames = static_cast<double>(m_samples.back().frames - m_samples.front().frames);
    return frames / std::chrono::duration<double>(time).count();
}

std::string progress_bar(const progress_state& state, int columns) {
    const bool begun = state.frames > 0;
    const std::string text = state.doing + (begun ? "  " + frames_text(state) : "");
    std::string line;
    const int room = columns - static_cast<int>(text.size()) - 5;
    if (state.total > 0 && room >= k_shortest_bar) {
        const auto length = static_cast<std::uint64_t>(std::min(room, k_longest_bar));
        const auto full = part_of(length, state);
        line = "[" + std::string(full, '#') + std::string(length - full, '.') + "]  ";
    }
    line += text;
    // The last column stays free: a terminal that has written into it may wrap.
    return line.substr(0, static_cast<std::size_t>(std::max(columns - 1, 0)));
}

std::string progress_line(const progress_state& state) {
    if (state.frames == 0) return state.doing;
    std::string line = state.doing + "  " + frames_text(state);
    if (state.total > 0) line += "  " + std::to_string(part_of(100, state)) + " %";
    return line;
}

std::string run_up_text(std::uint64_t over, std::uint64_t first, double rate) {
    char text[64];
    std::snprintf(text, sizeof text, "  %.1f of %.1f s", static_cast<double>(over) / rate,
                  static_cast<double>(first) / rate);
    return text;
}

progress::progress(std::FILE* out, int columns) : m_out(out), m_columns(columns) {}

progress::~progress() { take_bar_away(); }

void progress::take_bar_away() {
    if (!m_has_bar) return;
    std::fputs("\r\x1b[K", m_out);
    std::fflush(m_out);
    m_has_bar = false;
}

void progress::show(const progress_state& state, time_point now) {
    if (now < m_next) return;
    const bool first = m_next == time_point{};
    m_next = now + (m_columns > 0 ? time_point::duration(k_bar_interval)
                                  : time_point::duration(k_line_interval));
    progress_state told = state;
    if (state.frames > 0) m_pace.saw(state.frames, now);
    told.rate = m_pace.per_second();
    if (m_columns > 0) return show_bar(told);
    if (first) return;
    // The rate falls while nothing comes. That alone is no news to print.
    progress_state bare = state;
    bare.rate = 0;
    const std::string what = progress_line(bare);
    if (what == m_last_what) return tell_pause(state, now);
    m_last_what = what;
    m_changed = now;
    m_has_told_pause = false;
    show_line(progress_line(told));
}

void progress::show_bar(const progress_state& state) {
    std::fprintf(m_out, "\r\x1b[K%s", progress_bar(state, m_columns).c_str());
    std::fflush(m_out);
    m_has_bar = true;
}

void progress::tell_pause(const progress_state& state, time_point now) {
    if (now - m_changed < k_pause_told_after || m_has_told_pause) return;
    m_has_told_pause = true;
    show_line(progress_line(state) + "  (nothing new for 5 s, still waiting)");
}

void progress::show_line(const std::string& line) {
    std::fprintf(m_out, "%s\n", line.c_str());
    std::fflush(m_out);
}

void progress::say(const std::string& line) {
    take_bar_away();
    // A page may have written it.
    std::fprintf(m_out, "%s\n", in_one_line(line).c_str());
    std::fflush(m_out);
}

}  // namespace pennywort::host
