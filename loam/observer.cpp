// loam/observer.cpp - see the header for the contract.
#include "loam/observer.h"

#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "loam/loop_state.h"
#include "loam/message_loop.h"
#include "loam/out_of_memory.h"
#include "loam/ready_mutex.h"

namespace loam {

class observer : public std::enable_shared_from_this<observer> {
public:
    observer(std::int32_t code, zObserverHandler::function notify)
        : m_code(code), m_loop(zMessageLoop::Current()), m_notify(std::move(notify)) {}

    std::int32_t code() const { return m_code; }

    // A loop whose thread has ended refuses, which is no failure: there is nobody left to tell.
    zStatus post(const std::shared_ptr<const zRecord>& payload, std::uint64_t data) {
        return unless_out_of_memory([&] {
            loop_state::of(*m_loop).post(
                [self = shared_from_this(), payload, data] { self->deliver(*payload, data); });
            return 0;
        });
    }

    void retire() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_is_retired = true;
        if (m_caller != std::this_thread::get_id()) {
            m_call_ended.wait(lock, [this] { return m_calls == 0; });
        }
        drop_function(lock);
    }

private:
    // On the observer's thread, out of its loop; nested when the function runs a loop itself.
    void deliver(const zRecord& payload, std::uint64_t data) {
        if (!begin_call()) return;
        const call_end end(*this);
        m_notify(payload, data);
    }

    struct call_end {
        explicit call_end(observer& who) : called(who) {}
        call_end(const call_end&) = delete;
        call_end& operator=(const call_end&) = delete;
        ~call_end() { called.end_call(); }
        observer& called;
    };

    bool begin_call() {
        const std::lock_guard lock(m_mutex);
        if (m_is_retired || !m_notify) return false;
        ++m_calls;
        m_caller = std::this_thread::get_id();
        return true;
    }

    void end_call() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (--m_calls != 0) return;
        m_caller = {};
        m_call_ended.notify_all();
        if (m_is_retired) drop_function(lock);
    }

    // Whoever comes last of the handler's end and the last call: what the function holds is free
    // when the handler is gone, and not only when the last post has been thrown away.
    void drop_function(std::unique_lock<std::mutex>& lock) {
        if (m_calls != 0) return;
        const zObserverHandler::function doomed = std::exchange(m_notify, nullptr);
        lock.unlock();
    }

    const std::int32_t m_code;
    const std::shared_ptr<zMessageLoop> m_loop;
    ready_mutex m_mutex;
    std::condition_variable m_call_ended;
    zObserverHandler::function m_notify;
    int m_calls = 0;
    std::thread::id m_caller;  // of the calls under way, which nest on one thread
    bool m_is_retired = false;
};

namespace {

class observer_registry {
public:
    void add(std::shared_ptr<observer> one) {
        const std::lock_guard lock(m_mutex);
        m_observers[one->code()].push_back(std::move(one));
    }

    void remove(const std::shared_ptr<observer>& one) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_observers.find(one->code());
        std::erase(found->second, one);
        if (found->second.empty()) m_observers.erase(found);
    }

    std::vector<std::shared_ptr<observer>> of(std::int32_t code) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_observers.find(code);
        if (found == m_observers.end()) return {};
        return found->second;
    }

    std::int32_t new_code() {
        const std::lock_guard lock(m_mutex);
        do {
            m_last_code = m_last_code == k_last_code ? k_first_code : m_last_code + 1;
        } while (m_observers.contains(m_last_code));
        return m_last_code;
    }

private:
    // Above the numbers that people pick by hand, below the four-character codes.
    static constexpr std::int32_t k_first_code = 0x10000000;
    static constexpr std::int32_t k_last_code = 0x1FFFFFFF;

    ready_mutex m_mutex;
    std::unordered_map<std::int32_t, std::vector<std::shared_ptr<observer>>> m_observers;
    std::int32_t m_last_code = k_first_code;
};

// Never destroyed: static objects may observe.
observer_registry& registry() {
    static auto* the_registry = new observer_registry;
    return *the_registry;
}

}  // namespace
}  // namespace loam

zObserverHandler::zObserverHandler(std::int32_t code, function notify)
    : m_observer(std::make_shared<loam::observer>(code, std::move(notify))) {
    loam::registry().add(m_observer);
}

zObserverHandler::~zObserverHandler() {
    loam::registry().remove(m_observer);
    m_observer->retire();
}

zStatus zObserverHandler::PostNotification(std::int32_t code, zRecord* payload,
                                           std::uint64_t data) {
    std::unique_ptr<zRecord> owned(payload);
    return loam::unless_out_of_memory([&] {
        const auto observers = loam::registry().of(code);
        if (observers.empty()) return 0;
        if (owned == nullptr) owned = std::make_unique<zRecord>();
        const std::shared_ptr<const zRecord> shared(std::move(owned));
        zStatus status = 0;
        // One that cannot be reached does not cost the others their notification.
        for (const auto& one : observers) {
            if (one->post(shared, data) != 0) status = -1;
        }
        return status;
    });
}

std::int32_t zObserverHandler::NewCode() { return loam::registry().new_code(); }
