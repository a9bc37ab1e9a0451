// loam/thread.h - zThread runs a zThreadMain on a thread of its own.
#pragma once

#include <cstdint>
#include <memory>

#include "loam/export.h"
#include "loam/types.h"

namespace loam {
class thread_state;
}

// What a thread runs.
class LOAM_API zThreadMain {
public:
    zThreadMain();
    zThreadMain(const zThreadMain& other);
    virtual ~zThreadMain();
    // Runs on the new thread, which ends when this returns; nobody looks at the status. `argc` is 1
    // and `argv[0]` the thread's name, valid during the call. An exception ends the thread and is
    // traced.
    virtual zStatus Main(std::int32_t argc, const char* const* argv) = 0;
};

class LOAM_API zThread {
public:
    // Starts a thread that calls body->Main. The body is not owned and must live until Main has
    // returned. The system shows the name, on Linux its first 15 bytes. The flags are not looked
    // at: a thread runs with the priority of the one that made it. The caller deletes the object.
    // Null when the body is null or the system gives no thread.
    static zThread* Factory(const char* name, zThreadMain* body, char flag, char priority);

    // Waits for Main to return, so that the body can go right after it: tell the body to end first.
    // When it is Main itself that deletes its thread, the thread runs on to its end by itself.
    virtual ~zThread();
    zThread(const zThread&) = delete;
    zThread& operator=(const zThread&) = delete;

    // Waits for Main to return. From any thread, any number of times; from the thread itself it
    // returns at once.
    void Join();
    // Until Main has returned.
    bool IsRunning() const;

    // Whether the caller is the thread that the process began with.
    static bool IsCurrentThreadMain();
    // Sleeps at least that long; 0 gives up the rest of the time slice.
    static void MicroSleep(std::uint32_t microseconds);

private:
    explicit zThread(std::shared_ptr<loam::thread_state> state);

    std::shared_ptr<loam::thread_state> m_state;
};
