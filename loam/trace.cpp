// loam/trace.cpp - see the header for the contract.
#include "loam/trace.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "loam/environment_text.h"
#include "loam/format_text.h"
#include "loam/native_file.h"
#include "loam/ready_mutex.h"

namespace loam {
namespace {

using sink_function = std::function<void(const char* message)>;

// A sink with the number of calls that are under way; the state's mutex guards the number.
struct sink {
    explicit sink(sink_function function) : call(std::move(function)) {}

    const sink_function call;
    int calls = 0;
};

// One call of a sink, in the frame of whoever makes it. The calls under way make a list, and no
// thread_local variable counts them: the first use of such a one takes memory on Windows, and ends
// the process where there is none.
struct sink_call {
    const std::thread::id thread = std::this_thread::get_id();
    sink* taken = nullptr;
    sink_call* next = nullptr;
};

}  // namespace

// What LOAM_TRACE asks for.
class default_sink {
public:
    default_sink() {
        unsigned long error_of_wish = 0;  // of use to nobody: where traces go is not known yet
        const std::string wish = environment_text("LOAM_TRACE", error_of_wish);
        if (wish.empty()) return;
        m_is_on = true;
        int error = 0;
        if (wish != "stderr") {
            m_file = native_file::open(wish.c_str(), file_mode::append, error);
        }
    }

    bool is_on() const { return m_is_on; }

    // One call of the system per message, so that the lines of several processes that append to one
    // file do not mix.
    void write(std::string message) {
        if (message.empty() || message.back() != '\n') message.push_back('\n');
        const std::lock_guard lock(m_mutex);
        if (m_file != nullptr) {
            m_file->write(message);
        } else {
            std::fwrite(message.data(), 1, message.size(), stderr);
        }
    }

private:
    ready_mutex m_mutex;
    bool m_is_on = false;
    std::unique_ptr<native_file> m_file;
};

class trace_state {
public:
    trace_state() : m_is_on(m_default.is_on()) {}

    bool is_on() const { return m_is_on.load(std::memory_order_relaxed); }

    LOAM_PRINTF(2, 0)
    void write(const char* format, std::va_list arguments) {
        sink_call own;
        if (begin_call(own)) {
            call(*own.taken, format, arguments);
            end_call(own);
        } else if (m_default.is_on()) {
            m_default.write(format_text(format, arguments));
        }
    }

    // Whoever ends up as the owner of the sink before destroys it outside the lock, since what it
    // holds may trace when it goes.
    void set(std::unique_ptr<sink> next) {
        std::unique_lock<std::mutex> lock(m_mutex);
        // Its memory is taken before anything changes.
        m_retired.reserve(m_retired.size() + 1);
        m_is_on.store(next != nullptr || m_default.is_on(), std::memory_order_relaxed);
        m_sink.swap(next);
        if (next == nullptr || next->calls == 0) return lock.unlock();
        if (!is_in_call()) {
            m_call_ended.wait(lock, [&] { return next->calls == 0; });
            lock.unlock();
        } else {
            // Inside a sink it cannot wait: two sinks that do this at once would wait for each
            // other. The last call to end is the owner then.
            m_retired.push_back(std::move(next));
        }
    }

private:
    // False without a sink, and for what a sink itself traces: that would never end.
    bool begin_call(sink_call& own) {
        const std::lock_guard lock(m_mutex);
        if (m_sink == nullptr || is_in_call()) return false;
        own.taken = m_sink.get();
        ++own.taken->calls;
        own.next = std::exchange(m_calls, &own);
        return true;
    }

    void end_call(sink_call& own) {
        std::unique_ptr<sink> retired;
        const std::lock_guard lock(m_mutex);
        sink_call** at = &m_calls;
        while (*at != &own) at = &(*at)->next;
        *at = own.next;
        if (--own.taken->calls == 0) {
            m_call_ended.notify_all();
            retired = take_retired(own.taken);
        }
    }

    // Whether the calling thread is inside of a sink. With the lock held.
    bool is_in_call() const {
        const auto self = std::this_thread::get_id();
        const sink_call* at = m_calls;
        while (at != nullptr && at->thread != self) at = at->next;
        return at != nullptr;
    }

    std::unique_ptr<sink> take_retired(const sink* wanted) {
        const auto found = std::find_if(m_retired.begin(), m_retired.end(),
                                        [&](const auto& one) { return one.get() == wanted; });
        if (found == m_retired.end()) return nullptr;
        std::unique_ptr<sink> taken = std::move(*found);
        m_retired.erase(found);
        return taken;
    }

    LOAM_PRINTF(2, 0)
    static void call(const sink& taken, const char* format, std::va_list arguments) {
        try {
            taken.call(format_text(format, arguments).c_str());
        } catch (...) {
            // There is nowhere left to report it to.
        }
    }

    default_sink m_default;
    ready_mutex m_mutex;
    sink_call* m_calls = nullptr;
    std::condition_variable m_call_ended;
    std::unique_ptr<sink> m_sink;
    std::vector<std::unique_ptr<sink>> m_retired;
    std::atomic<bool> m_is_on;
};

}  // namespace loam

namespace {

// Room for a manager that takes no memory and is never destroyed.
alignas(zTraceManager) std::byte s_silent_manager[sizeof(zTraceManager)];

}  // namespace

zTraceManager::zTraceManager(std::unique_ptr<loam::trace_state> state)
    : m_state(std::move(state)) {}

zTraceManager::~zTraceManager() = default;

zTraceManager* zTraceManager::Default() {
    try {
        // Never destroyed: destructors of static objects trace too.
        static auto* the_manager = new zTraceManager(std::make_unique<loam::trace_state>());
        return the_manager;
    } catch (const std::bad_alloc&) {
        // The next call tries again. Until then a failure that is traced must not become another.
        return new (s_silent_manager) zTraceManager(nullptr);
    }
}

void zTraceManager::TraceNote(const char* format, ...) {
    if (format == nullptr || m_state == nullptr || !m_state->is_on()) return;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        m_state->write(format, arguments);
    } catch (...) {
        // Out of memory; a diagnostic is not worth more.
    }
    va_end(arguments);
}

void zTraceManager::SetSink(std::function<void(const char* message)> sink) {
    if (m_state == nullptr) throw std::bad_alloc();
    m_state->set(sink ? std::make_unique<loam::sink>(std::move(sink)) : nullptr);
}
