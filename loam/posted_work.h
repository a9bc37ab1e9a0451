// loam/posted_work.h - the queue between the threads that post work to a loop and the loop's own.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "loam/ready_mutex.h"

namespace loam {

class posted_work {
public:
    // `wake` makes the loop's thread call run_some() soon, `rest` says that nothing waits any more.
    // Both are called under the queue's lock, so that they alternate as the queue fills and
    // empties.
    posted_work(std::function<void()> wake, std::function<void()> rest);

    // False, and `work` is destroyed, when the queue is closed.
    bool post(std::function<void()> work);
    // Calls what waited when it was called and nothing that comes later, so that work which posts
    // work cannot keep other sources of the loop waiting. May be nested. Returns whether there was
    // anything.
    bool run_some();
    // Refuses work from now on, and destroys what waits.
    void close();
    // Nothing waits, and nothing is being called. Only on the loop's thread.
    bool is_idle();

private:
    std::function<void()> take();
    static void call(const std::function<void()>& work);

    ready_mutex m_mutex;
    const std::function<void()> m_wake;
    const std::function<void()> m_rest;
    std::deque<std::function<void()>> m_waiting;
    bool m_is_closed = false;
    int m_depth = 0;  // of run_some, on the loop's thread
};

}  // namespace loam
