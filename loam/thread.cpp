// loam/thread.cpp - see the header for the contract. What a system does differently stands in
// thread_state.h.
#include "loam/thread.h"

#include <memory>
#include <new>
#include <utility>

#include "loam/thread_state.h"
#include "loam/trace.h"

zThreadMain::zThreadMain() = default;
zThreadMain::zThreadMain(const zThreadMain&) = default;
zThreadMain::~zThreadMain() = default;

zThread* zThread::Factory(const char* name, zThreadMain* body, char, char) {
    if (body == nullptr) return nullptr;
    try {
        // All memory is taken before the thread starts: once it runs, null would be a lie.
        auto state = loam::thread_state::make(name == nullptr ? "" : name, body);
        std::unique_ptr<zThread> thread(new zThread(state));
        if (loam::thread_state::start(state)) return thread.release();
        thread->m_state = nullptr;
    } catch (const std::bad_alloc&) {
        zTraceManager::Default()->TraceNote("zThread::Factory: no memory\n");
    }
    return nullptr;
}

zThread::zThread(std::shared_ptr<loam::thread_state> state) : m_state(std::move(state)) {}

zThread::~zThread() {
    if (m_state != nullptr) Join();
}

void zThread::Join() { m_state->join(); }

bool zThread::IsRunning() const { return m_state->is_running(); }

bool zThread::IsCurrentThreadMain() { return loam::is_main_thread(); }

void zThread::MicroSleep(std::uint32_t microseconds) { loam::sleep_micro(microseconds); }
