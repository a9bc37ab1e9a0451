// loam/message_loop.h - zMessageLoop, the loop of a thread: for hosts that have none of their own,
// and the way to hand work to a thread for everybody.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "loam/export.h"
#include "loam/types.h"

namespace loam {
class loop_state;
}

// On Linux a thread's loop is a GLib main context: the one that the thread has pushed as its
// default, else the process's default one for the main thread and for a thread that is iterating
// it. Any other thread gets a context of its own with its first use of this class, pushed as its
// default for the rest of the thread's life, since two threads cannot iterate one context at once.
// So a host that iterates its contexts itself (GTK, Qt, GStreamer) need not call Run(). On Windows
// it is the thread's message queue, and any message pump of the host serves as well.
class LOAM_API zMessageLoop {
public:
    // Dispatches until Quit() or RequestQuit(). May be nested: each quit ends the innermost run.
    static void Run();
    // Ends the innermost Run() of the calling thread. Asked for before a Run() begins, it ends the
    // next one at once. Several requests before a run ends count as one.
    static void Quit();
    // Waits at most so long for something to do, does what is ready and returns. Whether anything
    // was. 0 does not wait.
    static bool RunOnce(std::uint32_t microseconds);
    // The calling thread's loop; never null. The handle may outlive the thread. Where the system
    // has no descriptor left for one, that of a thread that has ended; the next call tries again.
    static std::shared_ptr<zMessageLoop> Current();

    zMessageLoop(const zMessageLoop&) = delete;
    zMessageLoop& operator=(const zMessageLoop&) = delete;
    ~zMessageLoop();

    // Has `work` called on the loop's thread, in the order of the posts. From any thread, without
    // waiting. What it throws is traced and dropped. -1 when the thread has ended; `work` is
    // destroyed without a call then, as is all that still waits when the thread ends, on that
    // thread. An empty function is a failure too.
    zStatus Post(std::function<void()> work);
    // Quit() for the loop's thread, from any thread.
    void RequestQuit();

private:
    friend class loam::loop_state;
    explicit zMessageLoop(std::shared_ptr<loam::loop_state> state);

    std::shared_ptr<loam::loop_state> m_state;
};
