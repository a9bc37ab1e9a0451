// loam/loop_state.h - the system's side of a zMessageLoop. Twins: loop_state_linux.cpp,
// loop_state_win.cpp. The queue of posted work is theirs in common: posted_work.h.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "loam/types.h"

class zMessageLoop;

namespace loam {

class loop_state {
public:
    virtual ~loop_state() = default;

    // The calling thread's loop, made with its first use. Never null: where it cannot be made, or
    // the thread's own has gone, one that takes nothing and ends at once.
    static std::shared_ptr<zMessageLoop> current();

    // What is behind a handle.
    static loop_state& of(const zMessageLoop& loop);

    // Only on the loop's own thread.
    virtual void run() = 0;
    virtual bool run_once(std::uint32_t microseconds) = 0;

    // From any thread, also after the loop's own has ended, which post() refuses with -1. Where it
    // throws for want of memory, nothing was posted.
    virtual zStatus post(std::function<void()> work) = 0;
    virtual void request_quit() = 0;

protected:
    // The constructor of zMessageLoop is for the twins only.
    static std::shared_ptr<zMessageLoop> handle_of(std::shared_ptr<loop_state> state);
};

}  // namespace loam
