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

outcome key_writer::show(const picture_ptr& frame) {
    auto shown = m_fill->show(frame);
    return shown.ok() ? m_key->show(key_of(frame)) : shown;
}

outcome key_writer::hear(std::span<const float> samples) { return m_fill->hear(samples); }

outcome key_writer::finish() {
    m_source.reset();
    m_grey.reset();
    auto fill = m_fill->finish();
    auto key = m_key->finish();
    return fill.ok() ? key : fill;
}

}  // namespace pennywort::host
