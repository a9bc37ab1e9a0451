// browser_life.cpp - see the header for the contract.
#include "webdisplay/browser_life.h"

namespace pennywort::webdisplay {

bool browser_life::arrive() {
    if (m_phase == life_phase::expected) m_phase = life_phase::there;
    return m_phase == life_phase::there;
}

close_step browser_life::close() {
    switch (m_phase) {
        case life_phase::expected:
            m_phase = life_phase::abandoned;
            return close_step::abandon;
        case life_phase::abandoned:
            return close_step::abandon;
        case life_phase::there:
            m_phase = life_phase::closing;
            return close_step::ask;
        case life_phase::closing:
            return close_step::join;
        case life_phase::gone:
            break;
    }
    return close_step::nothing;
}

void browser_life::not_asked() {
    if (m_phase == life_phase::closing) m_phase = life_phase::there;
}

// Windows makes a lock with its first use. Were there no memory for it when the browser arrives,
// nobody would take the browser over, and it would never close.
shared_life::shared_life(std::shared_ptr<zSignal> ended) : m_ended(std::move(ended)) {
    const std::lock_guard<std::mutex> made(m_lock);
}

bool shared_life::arrive() {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_life.arrive();
}

close_step shared_life::close() {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_life.close();
}

void shared_life::not_asked() {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_life.not_asked();
}

void shared_life::end() {
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_life.end();
    }
    m_ended->Set();
}

bool shared_life::is_gone() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_life.phase() == life_phase::gone;
}

// A signal lets one waiter through, who hands it on to the next.
bool shared_life::wait(std::uint32_t microseconds) {
    if (is_gone()) return true;
    if (m_ended->Wait(microseconds) == 0) m_ended->Set();
    return is_gone();
}

}  // namespace pennywort::webdisplay
