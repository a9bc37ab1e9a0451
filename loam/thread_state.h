// loam/thread_state.h - the system's side of a zThread. Twins: thread_state_linux.cpp,
// thread_state_win.cpp.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "loam/ready_mutex.h"

class zThreadMain;

namespace loam {

// Shared by the zThread and the thread itself, so that either may go first.
class thread_state {
public:
    // Takes all the memory that a thread needs.
    static std::shared_ptr<thread_state> make(const char* name, zThreadMain* body);
    // False, with a trace, when the system gives no thread. Nothing here throws.
    static bool start(const std::shared_ptr<thread_state>& state);

    thread_state(const thread_state&) = delete;
    thread_state& operator=(const thread_state&) = delete;
    // Leaves the thread to itself, unless somebody has joined it.
    ~thread_state();

    void join();
    bool is_own_thread() const;
    bool is_running() const { return m_is_running.load(std::memory_order_acquire); }
    // Runs on the new thread: calls the body's Main and notes its end.
    void run();

private:
    thread_state(const char* name, zThreadMain* body);
    // 0, with the handle stored, or the system's code.
    int start_native();
    void join_native();
    // The system forgets the thread, which was not joined, when it has ended.
    void release_native();
    void run_body();
    // Within a handler: that the body ended by the exception which is being handled.
    void trace_exception() const;

    std::string m_name;
    zThreadMain* m_body;
    std::atomic<bool> m_is_running{true};
    // The new thread waits for this: when it is the last to go, it gives its own handle back. Not
    // the mutex below: whoever joins holds that until the thread has ended.
    std::atomic<bool> m_has_handle{false};
    std::atomic<std::thread::id> m_own_id{};
    ready_mutex m_join_mutex;
    bool m_is_joined = false;
    std::uintptr_t m_handle = 0;           // the system's; valid once it has been stored
    std::shared_ptr<thread_state> m_self;  // until the new thread holds a reference of its own
};

// Of the calling thread, as far as the system shows names.
void name_thread(const std::string& name);
bool is_main_thread();
void sleep_micro(std::uint32_t microseconds);

}  // namespace loam
