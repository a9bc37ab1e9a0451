// call_budget.h - how many calls of a page may wait for the host. It knows no runtime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

namespace pennywort::childprocess {

// Without it a page that calls in a loop fills the host's memory, and whatever the host is to do
// next waits behind all of its calls. For the thread that runs the page.
class call_budget {
public:
    // `most` calls may wait; 0: any number, and nothing is counted.
    explicit call_budget(std::uint32_t most) : m_most(most) {}

    bool is_bound() const { return m_most > 0; }
    // Whether a call of so many bytes may go out. One that may not counts as dropped. The result of
    // a script that the host waits for has a reserve of its own, as large as the rest.
    bool take(std::size_t bytes, bool is_result);
    // The host is done with the oldest calls.
    void handled(std::uint32_t calls);

    // Whether it is time to tell the host what was dropped while nothing goes out: the page may
    // never come to rest, and is not to send a message for each of them either.
    bool is_telling_due() const;
    bool has_untold() const { return m_untold > 0; }
    // What was dropped since the last call of this.
    std::uint32_t take_untold();

private:
    const std::uint32_t m_most;
    std::deque<std::size_t> m_waiting;  // the bytes of each
    std::size_t m_waiting_bytes = 0;
    std::uint64_t m_dropped = 0;
    std::uint32_t m_untold = 0;
};

}  // namespace pennywort::childprocess
