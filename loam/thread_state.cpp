// loam/thread_state.cpp - what is the same on every system; see the header for the contract.
#include "loam/thread_state.h"

#include <exception>
#include <utility>

#include "loam/trace.h"

namespace loam {

thread_state::thread_state(const char* name, zThreadMain* body) : m_name(name), m_body(body) {}

thread_state::~thread_state() {
    if (m_has_handle && !m_is_joined) release_native();
}

std::shared_ptr<thread_state> thread_state::make(const char* name, zThreadMain* body) {
    return std::shared_ptr<thread_state>(new thread_state(name, body));
}

bool thread_state::start(const std::shared_ptr<thread_state>& state) {
    state->m_self = state;
    const int error = state->start_native();
    if (error != 0) {
        state->m_self.reset();
        zTraceManager::Default()->TraceNote(
            "zThread::Factory: the system gives no thread (err=%d)\n", error);
        return false;
    }
    state->m_has_handle = true;
    state->m_has_handle.notify_all();
    return true;
}

bool thread_state::is_own_thread() const { return m_own_id.load() == std::this_thread::get_id(); }

void thread_state::join() {
    if (is_own_thread()) return;
    const std::lock_guard lock(m_join_mutex);
    if (m_is_joined) return;
    join_native();
    m_is_joined = true;
}

void thread_state::run() {
    const std::shared_ptr<thread_state> self = std::move(m_self);
    m_own_id = std::this_thread::get_id();
    m_has_handle.wait(false);
    name_thread(m_name);
    run_body();
    m_is_running.store(false, std::memory_order_release);
}

void thread_state::trace_exception() const {
    try {
        throw;
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("zThread: '%s' ended by an exception: %s\n",
                                            m_name.c_str(), error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("zThread: '%s' ended by an exception\n",
                                            m_name.c_str());
    }
}

}  // namespace loam
