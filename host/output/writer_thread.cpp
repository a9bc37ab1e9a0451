// host/output/writer_thread.cpp - see the header for the contract.
#include "host/output/writer_thread.h"

#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "core/limits.h"
#include "host/system/background.h"

namespace pennywort::host {

writer_thread::writer_thread(std::unique_ptr<frame_writer> writer)
    : m_writer(std::move(writer)), m_thread([this] { run(); }) {}

writer_thread::~writer_thread() {
    m_is_abandoned = true;
    static_cast<void>(finish());
}

void writer_thread::show(picture_ptr frame) {
    {
        const std::lock_guard hold(m_lock);
        if (m_has_failed || m_is_ending) return;
        m_has_shown = true;
        m_waiting.push_back({std::move(frame), 1});
    }
    m_changed.notify_one();
}

void writer_thread::show_again() {
    {
        const std::lock_guard hold(m_lock);
        if (m_has_failed || m_is_ending || !m_has_shown) return;
        if (m_waiting.empty() || m_waiting.back().times == 0) {
            m_waiting.push_back({nullptr, 1});
        } else {
            ++m_waiting.back().times;
        }
    }
    m_changed.notify_one();
}

void writer_thread::hear(std::vector<float> samples) {
    if (samples.empty()) return;
    {
        const std::lock_guard hold(m_lock);
        if (m_has_failed || m_is_ending) return;
        if ((m_waiting_sound + samples.size()) * sizeof samples[0] <= k_max_waiting_sound_bytes) {
            m_waiting_sound += samples.size();
            m_waiting.push_back({nullptr, 0, std::move(samples)});
        } else {
            m_waiting.push_back({nullptr, 0, {}, samples.size()});
        }
    }
    m_changed.notify_one();
}

void writer_thread::request_finish() {
    {
        const std::lock_guard hold(m_lock);
        m_is_ending = true;
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
    guarded([this] {
        entry todo;
        while (next(todo)) {
            write(todo);
            todo.frame.reset();
        }
    });
    complete();
}

// Without this, a writer that finds no memory for a frame, or no thread, would end the whole
// program.
template <class work_type>
void writer_thread::guarded(work_type work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        keep(outcome::no_memory());
        m_writer->other_has_failed();
    } catch (const std::exception& problem) {
        keep(outcome::failed(std::string("cannot write: ") + problem.what()));
        m_writer->other_has_failed();
    }
}

bool writer_thread::next(entry& out) {
    std::unique_lock hold(m_lock);
    m_changed.wait(hold, [this] { return m_is_ending || !m_waiting.empty(); });
    if (m_waiting.empty() || m_has_failed || m_is_abandoned) return false;
    out = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_waiting_sound -= out.sound.size();
    return true;
}

// A picture that looks as the one before is that one: its writer has converted it already.
void writer_thread::write(const entry& todo) {
    if (todo.times == 0) return keep(write_sound(todo));
    const bool is_new = todo.frame && !looks_as_before(*todo.frame);
    if (is_new) m_previous = todo.frame;
    if (todo.frame && !is_new) ++m_unchanged;
    for (std::uint64_t i = 0; i < todo.times && !m_has_failed && !m_is_abandoned; ++i) {
        keep(m_writer->show(m_previous));
        if (m_has_failed) return;
        // Before the repeats, so that whoever asks for those first never hears of more of them.
        ++m_written;
        if (i > 0 || !is_new) ++m_repeated;
    }
}

outcome writer_thread::write_sound(const entry& todo) {
    if (todo.silence == 0) return m_writer->hear(todo.sound);
    return m_writer->hear(std::vector<float>(todo.silence));
}

// Costs little where the page moves: the comparison ends with the first pixel that differs.
bool writer_thread::looks_as_before(const picture& frame) const {
    if (!m_previous || m_previous->byte_count() != frame.byte_count()) return false;
    return std::memcmp(m_previous->pixels.get(), frame.pixels.get(), frame.byte_count()) == 0;
}

void writer_thread::complete() {
    m_previous.reset();
    guarded([this] { keep(m_writer->finish()); });
    m_writer.reset();
    {
        const std::lock_guard hold(m_lock);
        m_waiting.clear();
    }
    m_has_finished = true;
}

void writer_thread::keep(const outcome& result) {
    if (result.ok() || m_has_failed) return;
    m_outcome = result;
    m_has_failed = true;
}

}  // namespace pennywort::host
