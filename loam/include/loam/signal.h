// loam/signal.h - zSignal, an event that one thread sets and another waits for.
#pragma once

#include <cstdint>

#include "loam/export.h"
#include "loam/types.h"

// Threads: every operation may be called from any thread. Whoever comes out of a successful Wait()
// may delete the signal at once, even while Set() is still returning elsewhere.
class LOAM_API zSignal {
public:
    // Not set. The caller deletes it. Null when it cannot be made.
    static zSignal* Factory();

    zSignal(const zSignal&) = delete;
    zSignal& operator=(const zSignal&) = delete;
    virtual ~zSignal();

    // Lets one Wait() through, now or later. Set twice counts once.
    virtual void Set() = 0;
    // Takes a Set() back that no Wait() has used.
    virtual void Reset() = 0;
    // 0 when the signal was set, which uses it up; -1 when the time has passed without. 0
    // microseconds asks without waiting. A change of the system's clock plays no part.
    virtual zStatus Wait(std::uint32_t microseconds) = 0;

protected:
    zSignal();
};
