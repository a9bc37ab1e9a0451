// host/output/key_writer.cpp - see the header for the contract.
#include "host/output/key_writer.h"

#include <new>
#include <utility>

#include "host/output/pixels.h"

namespace pennywort::host {

namespace {

// A series writes several frames at a time.
constexpr std::size_t k_most_pictures = 256;

}  // namespace

key_writer::key_writer(std::unique_ptr<frame_writer> fill, std::unique_ptr<frame_writer> key)
    : m_fill(std::move(fill)), m_key(std::move(key)) {}

outcome key_writer::begin() {
    auto begun = m_fill->begin();
    return begun.ok() ? m_key->begin() : begun;
}

picture_ptr key_writer::key_of(const picture_ptr& frame) {
    if (frame == m_source) return m_grey;
    if (!m_pool) {
        m_pool = std::make_unique<picture_pool>(frame->width, frame->height, k_most_pictures);
    }
    auto made = m_pool->take();
    if (!made) throw std::bad_alloc();
    alpha_as_grey(frame->pixels.get(), made->pixels.get(), made->pixel_count());
    m_source = frame;
    m_grey = std::move(made);
    return m_grey;
}

// An old key would stand beside a new fill, or the other way round. A reader that has closed a pipe
// is no failure. Only the first failure is told, and it says what becomes of both.
outcome key_writer::beside(outcome result, frame_writer& other) {
    if (result.what() != outcome::kind::failed) return result;
    other.other_has_failed();
    if (std::exchange(m_has_failed, true)) return result;
    const std::string fate = other.fate_beside_failure();
    return fate.empty() ? result : outcome::failed(result.text() + "; " + fate);
}

outcome key_writer::of_fill(outcome result) { return beside(std::move(result), *m_key); }

outcome key_writer::of_key(outcome result) { return beside(std::move(result), *m_fill); }

outcome key_writer::show(const picture_ptr& frame) {
    // First: where there is no memory for it, neither film has the frame.
    const picture_ptr key = key_of(frame);
    auto shown = of_fill(m_fill->show(frame));
    return shown.ok() ? of_key(m_key->show(key)) : shown;
}

outcome key_writer::hear(std::span<const float> samples) { return of_fill(m_fill->hear(samples)); }

void key_writer::other_has_failed() {
    m_fill->other_has_failed();
    m_key->other_has_failed();
}

outcome key_writer::finish() {
    m_source.reset();
    m_grey.reset();
    const auto fill = of_fill(m_fill->complete());
    const auto key = of_key(m_key->complete());
    const auto fill_end = of_fill(m_fill->finish());
    const auto key_end = m_key->finish();
    for (const auto& one : {fill, key, fill_end}) {
        if (!one.ok()) return one;
    }
    return key_end;
}

}  // namespace pennywort::host
