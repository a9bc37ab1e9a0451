// host/output/writer_thread.cpp - see the header for the contract.
#include "host/output/writer_thread.h"

#include <utility>

#include "host/system/background.h"

namespace pennywort::host {

writer_thread::writer_thread(std::unique_ptr<frame_writer> writer)
    : m_writer(std::move(writer)), m_thread([this] { run(); }) {}

writer_thread::~writer_thread() {
    m_abandoned = true;
    static_cast<void>(finish());
}

void writer_thread::show(picture_ptr frame) {
    {
        const std::scoped_lock hold(m_lock);
        if (m_failed || m_ending) return;
        m_latest = frame;
        m_waiting.push_back({std::move(frame), 1});
    }
    m_changed.notify_one();
}

void writer_thread::show_again() {
    {
        const std::scoped_lock hold(m_lock);
        if (m_failed || m_ending || !m_latest) return;
        if (m_waiting.empty()) {
            m_waiting.push_back({m_latest, 1});
        } else {
            ++m_waiting.back().times;
        }
    }
    m_changed.notify_one();
}

void writer_thread::request_finish() {
    {
        const std::scoped_lock hold(m_lock);
        m_ending = true;
        m_latest.reset();
    }
    m_changed.notify_one();
}

outcome writer_thread::finish() {
    request_finish();
    if (m_thread.joinable()) m_thread.join();
    return m_outcome;
}

void writer_thread::run() {
    work_in_background();
    entry todo;
    while (next(todo)) write(todo);
    todo.frame.reset();
    complete();
}

bool writer_thread::next(entry& out) {
    std::unique_lock hold(m_lock);
    m_changed.wait(hold, [this] { return m_ending || !m_waiting.empty(); });
    if (m_waiting.empty() || m_failed || m_abandoned) return false;
    out = std::move(m_waiting.front());
    m_waiting.pop_front();
    return true;
}

void writer_thread::write(const entry& todo) {
    for (std::uint64_t i = 0; i < todo.times && !m_failed && !m_abandoned; ++i) {
        keep(m_writer->show(todo.frame));
        if (!m_failed) ++m_written;
    }
}

void writer_thread::complete() {
    keep(m_writer->finish());
    m_writer.reset();
    {
        const std::scoped_lock hold(m_lock);
        m_waiting.clear();
        m_latest.reset();
    }
    m_finished = true;
}

void writer_thread::keep(const outcome& result) {
    if (result.ok() || m_failed) return;
    m_outcome = result;
    m_failed = true;
}

}  // namespace pennywort::host
