// engine.h - the one thread on which all sockets of the Beast binding live.
#pragma once

#include <functional>
#include <memory>
#include <thread>

#include "loam/thread.h"
#include "websocket/link/loop.h"

namespace pennywort::websocket {

// It exists as long as somebody holds it; so does its thread, "websocket". Whoever lets go last may
// be that thread itself.
class engine {
public:
    // The one that there is, or a new one. Throws without memory or thread.
    static std::shared_ptr<engine> shared();

    engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;
    ~engine();

    // From any thread.
    void post(std::function<void()> work) { m_loop->post(std::move(work)); }
    // Waits for the thread to end. Not on it.
    void join() { m_thread->Join(); }
    bool is_current() const;
    loop& events() { return *m_loop; }

private:
    class runner;

    std::shared_ptr<loop> m_loop;
    std::shared_ptr<runner> m_runner;
    std::unique_ptr<zThread> m_thread;
};

}  // namespace pennywort::websocket
