// loam/message_loop.cpp - see the header for the contract. What a system does differently stands in
// loop_state.h.
#include "loam/message_loop.h"

#include <utility>

#include "loam/loop_state.h"

std::shared_ptr<zMessageLoop> loam::loop_state::handle_of(std::shared_ptr<loop_state> state) {
    return std::shared_ptr<zMessageLoop>(new zMessageLoop(std::move(state)));
}

zMessageLoop::zMessageLoop(std::shared_ptr<loam::loop_state> state) : m_state(std::move(state)) {}

zMessageLoop::~zMessageLoop() = default;

void zMessageLoop::Run() { Current()->m_state->run(); }

void zMessageLoop::Quit() { Current()->m_state->request_quit(); }

bool zMessageLoop::RunOnce(std::uint32_t microseconds) {
    return Current()->m_state->run_once(microseconds);
}

std::shared_ptr<zMessageLoop> zMessageLoop::Current() { return loam::loop_state::current(); }

zStatus zMessageLoop::Post(std::function<void()> work) {
    return work ? m_state->post(std::move(work)) : -1;
}

void zMessageLoop::RequestQuit() { m_state->request_quit(); }
