// loop.h - the event loop that links live on. Whoever runs it does so on one thread at a time.
#pragma once

#include <functional>
#include <memory>

namespace pennywort::websocket {

class loop {
public:
    struct state;

    loop();
    loop(const loop&) = delete;
    loop& operator=(const loop&) = delete;
    ~loop();

    // From any thread; `work` runs on the thread that runs the loop.
    void post(std::function<void()> work);
    // Runs `work` at once, on the thread that may run the loop now, and completes what it begins
    // and the system does at once.
    void run_here(const std::function<void()>& work);
    // Waits for one event or stop(), and handles it. What it throws comes out here; the link that
    // it happened to has noticed by itself.
    void run_one();
    // Handles what is ready, unless it has been stopped, and waits for nothing.
    void poll();
    // Handles what is ready, also after stop(), and waits for nothing.
    void drain();
    // Handles events until stop().
    void run();
    // From any thread.
    void stop();

    state& inside() { return *m_state; }

private:
    std::unique_ptr<state> m_state;
};

}  // namespace pennywort::websocket
