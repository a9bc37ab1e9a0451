// loam/thread_state_linux.cpp - Linux half of loam/thread_state.h. Windows half:
// thread_state_win.cpp.
#include <cxxabi.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "loam/thread.h"
#include "loam/thread_state.h"

namespace loam {
namespace {

// What the kernel keeps of a thread's name, without the NUL.
constexpr std::size_t k_name_bytes = 15;

void* thread_main(void* argument) {
    static_cast<thread_state*>(argument)->run();
    return nullptr;
}

pthread_t native(std::uintptr_t handle) { return static_cast<pthread_t>(handle); }

}  // namespace

int thread_state::start_native() {
    pthread_t made{};
    const int error = ::pthread_create(&made, nullptr, thread_main, this);
    if (error == 0) m_handle = static_cast<std::uintptr_t>(made);
    return error;
}

void thread_state::join_native() { ::pthread_join(native(m_handle), nullptr); }

void thread_state::release_native() { ::pthread_detach(native(m_handle)); }

void name_thread(const std::string& name) {
    ::pthread_setname_np(::pthread_self(), name.substr(0, k_name_bytes).c_str());
}

void thread_state::run_body() {
    const char* const arguments[] = {m_name.c_str(), nullptr};
    try {
        m_body->Main(1, arguments);
    } catch (const abi::__forced_unwind&) {
        // pthread_exit: to swallow it would end the process.
        m_is_running.store(false, std::memory_order_release);
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
