// page_grain.cpp - see the header for the contract.
#include "webdisplay/page_grain.h"

#include <cmath>
#include <utility>

namespace pennywort::webdisplay {

namespace {

// The day is told in parts of a second that are no whole microseconds.
constexpr std::int64_t k_spare_us = 2;
constexpr double k_step_ms = 0.1;

}  // namespace

std::int64_t page_grain::first_moment(std::int64_t now, std::int64_t lead) {
    const std::int64_t from = now + lead + k_spare_us;
    return (from + k_step_us - 1) / k_step_us * k_step_us;
}

bool page_grain::begin() {
    m_is_second = false;
    if (m_trials == k_max_trials) return false;
    ++m_trials;
    return true;
}

std::int64_t page_grain::stamp(std::int64_t moment) const {
    return moment - (m_is_second ? k_unseen_us + 1 : k_step_us);
}

page_grain::verdict page_grain::judge(double told_ms) {
    if (std::isnan(told_ms)) return verdict::fits;
    if (!std::exchange(m_is_second, true)) {
        m_first_ms = told_ms;
        return verdict::second_frame;
    }
    return told_ms - m_first_ms > k_step_ms / 2 ? verdict::fits : verdict::next_moment;
}

}  // namespace pennywort::webdisplay
