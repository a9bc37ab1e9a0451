// host/render/frame_pacer.cpp - see the header for the contract.
#include "host/render/frame_pacer.h"

#include <algorithm>
#include <utility>

namespace pennywort::host {

namespace {

using namespace std::chrono_literals;

// Pictures of a page that keeps up are here within this time, even on a busy machine.
constexpr frame_pacer::duration k_picture_time = 60ms;
constexpr std::int64_t k_fewest_lag = 3;
// One in so many: an outlier hardly moves the usual time, a lasting change arrives within a second.
constexpr int k_smoothing = 16;

}  // namespace

std::size_t frame_pacer::lag_for(duration interval) {
    const auto ticks = (k_picture_time + interval - duration(1)) / interval;
    return static_cast<std::size_t>(std::max<std::int64_t>(ticks, k_fewest_lag));
}

frame_pacer::frame_pacer(duration interval, std::size_t lag)
    : m_interval(interval), m_lag(lag), m_usual(interval / 2), m_mean(m_usual) {}

void frame_pacer::picture_came(time_point at, picture_ptr picture) {
    // Before the first tick there is nothing that it could be the answer to.
    if (m_sent.empty()) return;
    m_arrivals.push_back({at, std::move(picture)});
}

std::optional<tick_result> frame_pacer::tick_sent(time_point at) {
    std::optional<tick_result> result;
    if (m_sent.size() == m_lag) result = decide();
    m_sent.push_back(at);
    return result;
}

tick_result frame_pacer::decide() {
    tick_result result;
    result.tick = m_decided;
    result.left_out = leave_out_what_has_no_tick();
    if (!m_arrivals.empty() && likely_place(latest_place()) == 0) {
        result.fresh = true;
        result.shown = std::move(m_arrivals.front().picture);
        learn(m_arrivals.front().at - m_sent.front());
        m_arrivals.pop_front();
    }
    m_sent.pop_front();
    ++m_decided;
    return result;
}

// Where there are more pictures than ticks for them, the one before the one that finds no tick left
// goes: of two pictures of one tick the newer one shows more of it.
std::uint64_t frame_pacer::leave_out_what_has_no_tick() {
    std::uint64_t left_out = 0;
    for (std::size_t i = 1; i < m_arrivals.size();) {
        if (newest_tick_at(m_arrivals[i].at) >= i) {
            ++i;
        } else {
            m_arrivals.erase(m_arrivals.begin() + static_cast<std::ptrdiff_t>(i - 1));
            ++left_out;
        }
    }
    return left_out;
}

// The last undecided tick that the first picture can have if all the others are to have one too.
std::size_t frame_pacer::latest_place() const {
    std::size_t latest = m_sent.size();
    for (std::size_t i = 0; i < m_arrivals.size(); ++i) {
        latest = std::min(latest, newest_tick_at(m_arrivals[i].at) - i);
    }
    return latest;
}

std::size_t frame_pacer::newest_tick_at(time_point at) const {
    std::size_t newest = m_sent.size() - 1;
    while (newest > 0 && m_sent[newest] > at) --newest;
    return newest;
}

// Of the ticks up to `latest`, the one from which the first picture took the most usual time.
std::size_t frame_pacer::likely_place(std::size_t latest) const {
    const time_point expected = m_arrivals.front().at - m_usual;
    std::size_t best = latest;
    for (std::size_t place = latest; place-- > 0;) {
        if (std::chrono::abs(m_sent[place] - expected) <
            std::chrono::abs(m_sent[best] - expected)) {
            best = place;
        }
    }
    return best;
}

void frame_pacer::learn(duration needed) {
    m_usual += (std::clamp(needed, duration(0), 2 * m_interval) - m_usual) / k_smoothing;
    m_learnt = std::min(m_learnt + 1, k_smoothing);
    m_mean += (needed - m_mean) / m_learnt;
}

}  // namespace pennywort::host
