// websocket/link/loop.cpp - see the header for the contract.
#include "websocket/link/loop.h"

#include <boost/asio/post.hpp>
#include <utility>

#include "websocket/link/loop_state.h"

namespace pennywort::websocket {

loop::loop() : m_state(std::make_unique<state>()) {}
loop::~loop() = default;

void loop::post(std::function<void()> work) {
    boost::asio::post(m_state->io,
                      [this, posted = std::move(work)] { m_state->ready.run(posted); });
}

void loop::run_here(const std::function<void()>& work) { m_state->ready.run(work); }

void loop::run_one() { m_state->io.run_one(); }

void loop::poll() { m_state->io.poll(); }

void loop::drain() {
    m_state->io.restart();
    m_state->io.poll();
}

void loop::run() { m_state->io.run(); }

void loop::stop() { m_state->io.stop(); }

}  // namespace pennywort::websocket
