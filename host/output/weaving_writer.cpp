// host/output/weaving_writer.cpp - see the header for the contract.
#include "host/output/weaving_writer.h"

#include <algorithm>
#include <new>
#include <utility>

namespace pennywort::host {

namespace {

// One that is written, one that is kept to be shown again, and one that is made.
constexpr std::size_t k_pictures = 4;

}  // namespace

weaving_writer::weaving_writer(std::unique_ptr<frame_writer> inner) : m_inner(std::move(inner)) {}

outcome weaving_writer::begin() { return m_inner->begin(); }

outcome weaving_writer::show(const picture_ptr& frame) {
    if (!m_top) {
        m_top = frame;
        return outcome::fine();
    }
    const picture_ptr top = std::exchange(m_top, nullptr);
    return m_inner->show(top == frame ? frame : woven(*top, *frame));
}

outcome weaving_writer::hear(std::span<const float> samples) { return m_inner->hear(samples); }

picture_ptr weaving_writer::woven(const picture& top, const picture& bottom) {
    if (!m_pool) m_pool = std::make_unique<picture_pool>(top.width, top.height, k_pictures);
    auto made = m_pool->take();
    if (!made) throw std::bad_alloc();
    const auto width = static_cast<std::size_t>(top.width);
    for (long line = 0; line < top.height; ++line) {
        const picture& from = line % 2 == 0 ? top : bottom;
        const std::size_t begin = static_cast<std::size_t>(line) * width;
        std::copy_n(from.pixels.get() + begin, width, made->pixels.get() + begin);
    }
    return made;
}

outcome weaving_writer::finish() {
    auto shown = outcome::fine();
    if (const picture_ptr left = std::exchange(m_top, nullptr)) shown = m_inner->show(left);
    auto finished = m_inner->finish();
    return shown.ok() ? finished : shown;
}

}  // namespace pennywort::host
