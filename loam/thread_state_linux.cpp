// loam/thread_state_linux.cpp - Linux half of loam/thread_state.h. Windows half:
// thread_state_win.cpp.
#include <cxxabi.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "loam/thread.h"
#include "loam/thread_state.h"
#include "loam/trace.h"

namespace loam {
namespace {

// What the kernel keeps of a thread's name, without the NUL.
constexpr std::size_t k_name_bytes = 15;

void* thread_main(void* argument) {
    const std::unique_ptr<std::shared_ptr<thread_state>> state(
        static_cast<std::shared_ptr<thread_state>*>(argument));
    (*state)->run();
    return nullptr;
}

}  // namespace

struct thread_state::native {
    pthread_t handle{};
    bool started = false;
};

thread_state::thread_state(const char* name, zThreadMain* body)
    : m_name(name), m_body(body), m_native(std::make_unique<native>()) {}

std::shared_ptr<thread_state> thread_state::start(const char* name, zThreadMain* body) {
    std::shared_ptr<thread_state> state(new thread_state(name, body));
    auto argument = std::make_unique<std::shared_ptr<thread_state>>(state);
    const int error =
        ::pthread_create(&state->m_native->handle, nullptr, thread_main, argument.get());
    if (error != 0) {
        zTraceManager::Default()->TraceNote("zThread::Factory: pthread_create failed (err=%d)\n",
                                            error);
        return nullptr;
    }
    argument.release();
    state->m_native->started = true;
    state->m_handle_stored = true;
    state->m_handle_stored.notify_all();
    return state;
}

thread_state::~thread_state() {
    if (m_native->started && !m_joined) ::pthread_detach(m_native->handle);
}

bool thread_state::is_own_thread() const {
    return ::pthread_equal(m_native->handle, ::pthread_self()) != 0;
}

void thread_state::join() {
    if (is_own_thread()) return;
    const std::lock_guard lock(m_join_mutex);
    if (m_joined) return;
    ::pthread_join(m_native->handle, nullptr);
    m_joined = true;
}

void thread_state::run() {
    m_handle_stored.wait(false);
    ::pthread_setname_np(::pthread_self(), m_name.substr(0, k_name_bytes).c_str());
    run_body();
    m_running.store(false, std::memory_order_release);
}

void thread_state::run_body() {
    const char* const arguments[] = {m_name.c_str(), nullptr};
    try {
        m_body->Main(1, arguments);
    } catch (const abi::__forced_unwind&) {
        // pthread_exit: to swallow it would end the process.
        m_running.store(false, std::memory_order_release);
        throw;
    } catch (...) {
        trace_exception();
    }
}

// Asked at every turn of a loop, so the two system calls are made once for each thread.
bool is_main_thread() {
    static thread_local const bool is_main = ::gettid() == ::getpid();
    return is_main;
}

void sleep_micro(std::uint32_t microseconds) {
    if (microseconds == 0) {
        ::sched_yield();
        return;
    }
    timespec left{static_cast<time_t>(microseconds / 1000000),
                  static_cast<long>(microseconds % 1000000) * 1000};
    while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

}  // namespace loam
