// loam/trace.cpp - see the header for the contract.
#include "loam/trace.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "loam/environment.h"
#include "loam/format_text.h"
#include "loam/native_file.h"

namespace loam {
namespace {

using sink_function = std::function<void(const char* message)>;

// A sink with the number of calls that are under way; the state's mutex guards the number.
struct sink {
    explicit sink(sink_function function) : call(std::move(function)) {}

    const sink_function call;
    int calls = 0;
};

// How many sinks the calling thread is inside of.
thread_local int t_depth = 0;

}  // namespace

// What LOAM_TRACE asks for.
class default_sink {
public:
    default_sink() {
        const std::string wish = environment_variable("LOAM_TRACE");
        if (wish.empty()) return;
        m_on = true;
        int error = 0;
        if (wish != "stderr") {
            m_file = native_file::open(wish, file_mode::append, error);
        }
    }

    bool is_on() const { return m_on; }

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
    std::mutex m_mutex;
    bool m_on = false;
    std::unique_ptr<native_file> m_file;
};

class trace_state {
public:
    trace_state() : m_on(m_default.is_on()) {}

    bool is_on() const { return m_on.load(std::memory_order_relaxed); }

    LOAM_PRINTF(2, 0)
    void write(const char* format, std::va_list arguments) {
        // What a sink traces must not come back to it, or it would never end.
        sink* const taken = t_depth == 0 ? begin_call() : nullptr;
        if (taken != nullptr) {
            ++t_depth;
            call(*taken, format, arguments);
            --t_depth;
            end_call(taken);
        } else if (m_default.is_on()) {
            m_default.write(format_text(format, arguments));
        }
    }

    // Whoever ends up as the owner of the sink before destroys it outside the lock, since what it
    // holds may trace when it goes.
    void set(std::unique_ptr<sink> next) {
        std::unique_lock lock(m_mutex);
        m_on.store(next != nullptr || m_default.is_on(), std::memory_order_relaxed);
        m_sink.swap(next);
        if (next == nullptr || next->calls == 0) return lock.unlock();
        if (t_depth == 0) {
            m_call_ended.wait(lock, [&] { return next->calls == 0; });
            lock.unlock();
        } else {
            // Inside a sink it cannot wait: two sinks that do this at once would wait for each
            // other. The last call to end is the owner then.
            m_retired.push_back(std::move(next));
        }
    }

private:
    sink* begin_call() {
        const std::lock_guard lock(m_mutex);
        if (m_sink != nullptr) ++m_sink->calls;
        return m_sink.get();
    }

    void end_call(sink* ended) {
        std::unique_ptr<sink> retired;
        const std::lock_guard lock(m_mutex);
        if (--ended->calls == 0) {
            m_call_ended.notify_all();
            retired = take_retired(ended);
        }
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
    std::mutex m_mutex;
    std::condition_variable m_call_ended;
    std::unique_ptr<sink> m_sink;
    std::vector<std::unique_ptr<sink>> m_retired;
    std::atomic<bool> m_on;
};

}  // namespace loam

zTraceManager::zTraceManager() : m_state(std::make_unique<loam::trace_state>()) {}

zTraceManager::~zTraceManager() = default;

zTraceManager* zTraceManager::Default() {
    // Never destroyed: destructors of static objects trace too.
    static auto* the_manager = new zTraceManager;
    return the_manager;
}

void zTraceManager::TraceNote(const char* format, ...) {
    if (format == nullptr || !m_state->is_on()) return;
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
    m_state->set(sink ? std::make_unique<loam::sink>(std::move(sink)) : nullptr);
}
