// loam/observer.h - zObserverHandler: notifications by number, delivered on the observer's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "loam/export.h"
#include "loam/record.h"
#include "loam/types.h"

namespace loam {
class observer;
}

// An observer of the notifications with one code. It belongs to the thread that constructs it: its
// function is called there, from that thread's message loop (loam/message_loop.h), in the order of
// the posts of each thread. Nothing is delivered while the loop does not run, and nothing any more
// when the thread has ended. What the function throws is traced and dropped.
class LOAM_API zObserverHandler {
public:
    // The payload is shared by all observers and valid during the call.
    using function = std::function<void(const zRecord& payload, std::uint64_t data)>;

    zObserverHandler(std::int32_t code, function notify);
    zObserverHandler(const zObserverHandler&) = delete;
    zObserverHandler& operator=(const zObserverHandler&) = delete;
    // After this no call happens, and none is under way unless the function itself destroys its
    // handler. Meant for the handler's own thread; on another one it waits for a call that is under
    // way, so hold no lock there that the function takes.
    virtual ~zObserverHandler();

    // Delivers to all observers that are registered for `code` now. From any thread, without
    // waiting for any. Takes the payload in every case; it is deleted after the last delivery, on
    // whichever thread that is, or at once when nobody observes. Null stands for an empty record. 0
    // also when nobody observes; -1 when there is no memory.
    static zStatus PostNotification(std::int32_t code, zRecord* payload, std::uint64_t data);

    // A code that nobody observes and that no call before this one has returned; never 0.
    static std::int32_t NewCode();

private:
    std::shared_ptr<loam::observer> m_observer;
};
