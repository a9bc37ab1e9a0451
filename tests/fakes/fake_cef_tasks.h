// fake_cef_tasks.h - the fake runtime's two threads: a queue for the UI thread, which somebody else
// runs, and the IO thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace fake {

using task = std::function<void()>;

class ui_queue {
public:
    void push(task work);
    void push_delayed(task work, std::chrono::milliseconds delay);
    // Runs in the step that comes so many steps after the present one.
    void push_after_steps(task work, int steps);
    // One step: what is due runs, and what that makes due as well.
    void run_step();
    void clear();

private:
    struct waiting {
        task work;
        std::chrono::steady_clock::time_point due;
        long step = 0;
    };
    void begin_step();
    bool take(task& work);

    std::mutex m_lock;
    std::deque<task> m_ready;
    std::vector<waiting> m_waiting;
    long m_step = 0;
};

class io_thread {
public:
    void start();
    // Runs what waits and ends.
    void stop();
    bool post(task work);
    // Waits until there is nothing to do.
    void settle();

private:
    void run();

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<task> m_tasks;
    bool m_running = false;
    bool m_busy = false;
    std::thread m_thread;
};

}  // namespace fake
