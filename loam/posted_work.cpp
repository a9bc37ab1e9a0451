// loam/posted_work.cpp - see the header for the contract.
#include "loam/posted_work.h"

#include <exception>
#include <utility>

#include "loam/trace.h"

namespace loam {

posted_work::posted_work(std::function<void()> wake, std::function<void()> rest)
    : m_wake(std::move(wake)), m_rest(std::move(rest)) {}

bool posted_work::post(std::function<void()> work) {
    const std::lock_guard lock(m_mutex);
    if (m_is_closed) return false;
    m_waiting.push_back(std::move(work));
    if (m_waiting.size() == 1) m_wake();
    return true;
}

bool posted_work::run_some() {
    std::size_t left = 0;
    {
        const std::lock_guard lock(m_mutex);
        left = m_waiting.size();
    }
    const bool has_any = left > 0;
    ++m_depth;
    // A nested loop may have taken the rest in between.
    for (std::function<void()> work; left > 0 && (work = take()); --left) call(work);
    --m_depth;
    return has_any;
}

void posted_work::close() {
    {
        const std::lock_guard lock(m_mutex);
        m_is_closed = true;
    }
    // One by one, so that this takes no memory; and outside the lock, since what goes may post.
    while (take()) {
    }
}

bool posted_work::is_idle() {
    const std::lock_guard lock(m_mutex);
    return m_waiting.empty() && m_depth == 0;
}

std::function<void()> posted_work::take() {
    const std::lock_guard lock(m_mutex);
    if (m_waiting.empty()) return nullptr;
    std::function<void()> work = std::move(m_waiting.front());
    m_waiting.pop_front();
    if (m_waiting.empty()) m_rest();
    return work;
}

// The caller may be a C library, which no exception may pass through.
void posted_work::call(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("zMessageLoop: posted work threw: %s\n", error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("zMessageLoop: posted work threw\n");
    }
}

}  // namespace loam
