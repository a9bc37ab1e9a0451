// loam/message_loop.cpp - see the header for the contract. What a system does differently stands in
// loop_state.h.
#include "loam/message_loop.h"

#include <utility>

#include "loam/loop_state.h"
#include "loam/out_of_memory.h"

std::shared_ptr<zMessageLoop> loam::loop_state::handle_of(std::shared_ptr<loop_state> state) {
    return std::shared_ptr<zMessageLoop>(new zMessageLoop(std::move(state)));
}

loam::loop_state& loam::loop_state::of(const zMessageLoop& loop) { return *loop.m_state; }

zMessageLoop::zMessageLoop(std::shared_ptr<loam::loop_state> state) : m_state(std::move(state)) {}

zMessageLoop::~zMessageLoop() = default;

void zMessageLoop::Run() { Current()->m_state->run(); }

void zMessageLoop::Quit() { Current()->m_state->request_quit(); }

bool zMessageLoop::RunOnce(std::uint32_t microseconds) {
    return Current()->m_state->run_once(microseconds);
}

std::shared_ptr<zMessageLoop> zMessageLoop::Current() { return loam::loop_state::current(); }

zStatus zMessageLoop::Post(std::function<void()> work) {
    if (!work) return -1;
    return loam::unless_out_of_memory([&] { return m_state->post(std::move(work)); });
}

void zMessageLoop::RequestQuit() { m_state->request_quit(); }
