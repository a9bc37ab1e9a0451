// websocket/managed/engine.cpp - see the header for the contract.
#include "websocket/managed/engine.h"

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

#include "core/run/guarded.h"
#include "core/statuses.h"

namespace pennywort::websocket {

// What the thread runs. It keeps itself until it has ended, since the engine may go before.
class engine::runner : public zThreadMain {
public:
    explicit runner(std::shared_ptr<loop> events) : m_loop(std::move(events)) {}

    zStatus Main(std::int32_t, const char* const*) override {
        const std::shared_ptr<runner> self = std::move(m_self);
        m_id = std::this_thread::get_id();
        // An event that runs out of memory throws; its link has seen to itself.
        while (!run::guarded("cWebSocket_Sharp", "the loop", [this] { m_loop->run(); })) {
        }
        return k_ok;
    }

    bool is_current() const { return m_id == std::this_thread::get_id(); }
    void keep(std::shared_ptr<runner> self) { m_self = std::move(self); }

private:
    const std::shared_ptr<loop> m_loop;
    std::shared_ptr<runner> m_self;
    std::atomic<std::thread::id> m_id{};
};

std::shared_ptr<engine> engine::shared() {
    static std::mutex mutex;
    static std::weak_ptr<engine> running;
    const std::lock_guard lock(mutex);
    auto found = running.lock();
    if (found == nullptr) {
        found = std::make_shared<engine>();
        running = found;
    }
    return found;
}

engine::engine() : m_loop(std::make_shared<loop>()), m_runner(std::make_shared<runner>(m_loop)) {
    m_runner->keep(m_runner);
    m_thread.reset(zThread::Factory("websocket", m_runner.get(), 0, 4));
    if (m_thread != nullptr) return;
    m_runner->keep(nullptr);
    throw std::bad_alloc();
}

engine::~engine() {
    m_loop->stop();
    // Waits for the thread, unless this is the thread.
    m_thread->Join();
}

bool engine::is_current() const { return m_runner->is_current(); }

}  // namespace pennywort::websocket
