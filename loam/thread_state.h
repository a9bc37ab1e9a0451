// loam/thread_state.h - the system's side of a zThread. Twins: thread_state_linux.cpp,
// thread_state_win.cpp.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

class zThreadMain;

namespace loam {

// Shared by the zThread and the thread itself, so that either may go first.
class thread_state {
public:
    // Null when the system gives no thread.
    static std::shared_ptr<thread_state> start(const char* name, zThreadMain* body);

    // Leaves the thread to itself, unless somebody has joined it.
    ~thread_state();

    void join();
    bool is_own_thread() const;
    bool is_running() const { return m_running.load(std::memory_order_acquire); }
    // Runs on the new thread: calls the body's Main and notes its end.
    void run();

private:
    struct native;

    thread_state(const char* name, zThreadMain* body);
    void run_body();
    // Within a handler: that the body ended by the exception which is being handled.
    void trace_exception() const;

    std::string m_name;
    zThreadMain* m_body;
    std::atomic<bool> m_running{true};
    // The new thread waits for this before it looks at its own handle. Not the mutex below: whoever
    // joins holds that until the thread has ended.
    std::atomic<bool> m_handle_stored{false};
    std::mutex m_join_mutex;
    bool m_joined = false;
    std::unique_ptr<native> m_native;
};

bool is_main_thread();
void sleep_micro(std::uint32_t microseconds);

}  // namespace loam
