// loam/thread.cpp - see the header for the contract. What a system does differently stands in
// thread_state.h.
#include "loam/thread.h"

#include <new>
#include <utility>

#include "loam/thread_state.h"

zThreadMain::zThreadMain() = default;
zThreadMain::zThreadMain(const zThreadMain&) = default;
zThreadMain::~zThreadMain() = default;

zThread* zThread::Factory(const char* name, zThreadMain* body, char, char) {
    if (body == nullptr) return nullptr;
    auto state = loam::thread_state::start(name == nullptr ? "" : name, body);
    if (state == nullptr) return nullptr;
    return new zThread(std::move(state));
}

zThread::zThread(std::shared_ptr<loam::thread_state> state) : m_state(std::move(state)) {}

zThread::~zThread() { Join(); }

void zThread::Join() { m_state->join(); }

bool zThread::IsRunning() const { return m_state->is_running(); }

bool zThread::IsCurrentThreadMain() { return loam::is_main_thread(); }

void zThread::MicroSleep(std::uint32_t microseconds) { loam::sleep_micro(microseconds); }
