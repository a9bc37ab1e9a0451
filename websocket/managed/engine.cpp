// websocket/managed/engine.cpp - see the header for the contract.
#include "websocket/managed/engine.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <utility>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "websocket/link/tls.h"
#include "websocket/managed/spare_text.h"

namespace pennywort::websocket {

namespace {

// A handler that hangs does not keep the process from ending.
constexpr std::chrono::seconds k_longest_end{2};

// The engines whose thread has not ended yet. Never freed, so that the process's end finds it, and
// in it the last engine.
struct thread_count {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
    std::weak_ptr<engine> running;
    std::shared_ptr<engine> last;
};

thread_count& threads() {
    static auto* const s_threads = new thread_count;
    return *s_threads;
}

void add_thread(int count) {
    const std::lock_guard lock(threads().mutex);
    threads().count += count;
    threads().changed.notify_all();
}

// The last thing that a thread does.
class counted_thread {
public:
    counted_thread() = default;
    counted_thread(const counted_thread&) = delete;
    counted_thread& operator=(const counted_thread&) = delete;
    ~counted_thread() {
        end_tls_of_thread();
        add_thread(-1);
    }
};

// OpenSSL frees what it keeps when the process ends. A thread that was in it then would use what is
// gone, so the loop is stopped before, and its thread waited for.
class end_of_process {
public:
    // Exit handlers run backwards: OpenSSL's has to be there first.
    end_of_process() {
        threads();
        prepare_tls();
    }
    end_of_process(const end_of_process&) = delete;
    end_of_process& operator=(const end_of_process&) = delete;
    ~end_of_process() {
        std::unique_lock lock(threads().mutex);
        threads().last = threads().running.lock();
        if (threads().last != nullptr) {
            if (threads().last->is_current()) return;
            threads().last->events().stop();
        }
        const bool have_ended =
            threads().changed.wait_for(lock, k_longest_end, [] { return threads().count == 0; });
        lock.unlock();
        if (have_ended && threads().last != nullptr) threads().last->join();
    }
};

std::shared_ptr<engine> running_engine() {
    const std::lock_guard lock(threads().mutex);
    return threads().running.lock();
}

}  // namespace

// What the thread runs. It keeps itself until it has ended, since the engine may go before.
class engine::runner : public zThreadMain {
public:
    explicit runner(std::shared_ptr<loop> events) : m_loop(std::move(events)) {}

    zStatus Main(std::int32_t, const char* const*) override {
        const counted_thread counted;
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
    static std::mutex s_making;
    static const end_of_process s_end;
    const std::lock_guard lock(s_making);
    auto found = running_engine();
    if (found == nullptr) {
        found = std::make_shared<engine>();
        const std::lock_guard known(threads().mutex);
        threads().running = found;
    }
    return found;
}

engine::engine() : m_loop(std::make_shared<loop>()), m_runner(std::make_shared<runner>(m_loop)) {
    m_runner->keep(m_runner);
    add_thread(1);
    m_thread.reset(zThread::Factory("websocket", m_runner.get(), 0, 4));
    if (m_thread != nullptr) return;
    add_thread(-1);
    m_runner->keep(nullptr);
    throw std::bad_alloc();
}

engine::~engine() {
    m_loop->stop();
    // Waits for the thread, unless this is the thread.
    m_thread->Join();
    spare_text::drop_all();
}

bool engine::is_current() const { return m_runner->is_current(); }

}  // namespace pennywort::websocket
