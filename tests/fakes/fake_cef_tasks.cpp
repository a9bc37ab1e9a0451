// fake_cef_tasks.cpp - see the header.
#include "tests/fakes/fake_cef_tasks.h"

#include <algorithm>
#include <utility>

namespace fake {

namespace {

// A page that posts without end must not keep one step from returning.
constexpr int k_most_tasks_in_a_step = 10000;

}  // namespace

void ui_queue::push(task work) {
    const std::lock_guard lock(m_lock);
    m_ready.push_back(std::move(work));
}

void ui_queue::push_delayed(task work, std::chrono::milliseconds delay) {
    const std::lock_guard lock(m_lock);
    m_waiting.push_back({std::move(work), std::chrono::steady_clock::now() + delay, 0});
}

void ui_queue::push_after_steps(task work, int steps) {
    const std::lock_guard lock(m_lock);
    m_waiting.push_back({std::move(work), {}, m_step + steps});
}

void ui_queue::begin_step() {
    const std::lock_guard lock(m_lock);
    ++m_step;
    const auto now = std::chrono::steady_clock::now();
    const auto is_due = [&](const waiting& w) { return w.due <= now && w.step <= m_step; };
    for (auto& entry : m_waiting) {
        if (is_due(entry)) m_ready.push_back(std::move(entry.work));
    }
    std::erase_if(m_waiting, is_due);
}

bool ui_queue::take(task& work) {
    const std::lock_guard lock(m_lock);
    if (m_ready.empty()) return false;
    work = std::move(m_ready.front());
    m_ready.pop_front();
    return true;
}

void ui_queue::run_step() {
    begin_step();
    task work;
    for (int i = 0; i < k_most_tasks_in_a_step && take(work); ++i) {
        work();
        work = nullptr;
    }
}

void ui_queue::clear() {
    std::deque<task> ready;
    std::vector<waiting> waiting_tasks;
    const std::lock_guard lock(m_lock);
    ready.swap(m_ready);
    waiting_tasks.swap(m_waiting);
}

void io_thread::start() {
    m_running = true;
    m_thread = std::thread([this] { run(); });
}

void io_thread::stop() {
    {
        const std::lock_guard lock(m_lock);
        if (!m_running) return;
        m_running = false;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool io_thread::post(task work) {
    {
        const std::lock_guard lock(m_lock);
        if (!m_running) return false;
        m_tasks.push_back(std::move(work));
    }
    m_changed.notify_all();
    return true;
}

void io_thread::settle() {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [&] { return m_tasks.empty() && !m_busy; });
}

void io_thread::run() {
    std::unique_lock lock(m_lock);
    for (;;) {
        m_changed.wait(lock, [&] { return !m_running || !m_tasks.empty(); });
        if (m_tasks.empty()) return;
        task work = std::move(m_tasks.front());
        m_tasks.pop_front();
        m_busy = true;
        lock.unlock();
        work();
        work = nullptr;
        lock.lock();
        m_busy = false;
        m_changed.notify_all();
    }
}

}  // namespace fake
