// tick_ledger.h - what became of the ticks of a display that runs on its host's clock.
#pragma once

#include <atomic>
#include <cstdint>

namespace pennywort::webdisplay {

// The runtime drops a tick silently while the page is busy with the one before, and says nothing of
// a tick at which nothing changed, so pictures alone cannot tell the two apart. The page can: it
// counts the animation frames that it was given, and reports them from time to time. A tick counts
// as missed when it brought neither an animation frame nor a picture.
class tick_ledger {
public:
    // A tick was sent. Any thread.
    void ticked() { m_ticks.fetch_add(1, std::memory_order_relaxed); }
    // A picture came. Display thread.
    void painted() { m_painted.fetch_add(1, std::memory_order_relaxed); }
    // The page has had `frames` animation frames since it was loaded. Display thread.
    void page_had(std::uint64_t frames);
    // The page was shown or hidden, which a count cannot go across. Any thread.
    void interrupted() { m_interrupted.store(true, std::memory_order_relaxed); }

    std::uint64_t ticks() const { return m_ticks.load(std::memory_order_relaxed); }
    std::uint64_t pictures() const { return m_painted.load(std::memory_order_relaxed); }
    std::uint64_t missed() const { return m_missed.load(std::memory_order_relaxed); }

private:
    void begin_count(std::uint64_t frames);

    std::atomic<std::uint64_t> m_ticks{0};
    std::atomic<std::uint64_t> m_painted{0};
    std::atomic<std::uint64_t> m_missed{0};
    std::atomic<bool> m_interrupted{true};
    // Where the count of this page began; display thread.
    std::uint64_t m_ticks_then = 0;
    std::uint64_t m_painted_then = 0;
    std::uint64_t m_frames_then = 0;
    std::uint64_t m_frames_last = 0;
    std::uint64_t m_missed_then = 0;
};

}  // namespace pennywort::webdisplay
