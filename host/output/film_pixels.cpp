// host/output/film_pixels.cpp - see the header for the contract.
#include "host/output/film_pixels.h"

#include "host/output/pixels.h"

namespace pennywort::host {

const void* film_pixels::of(const picture_ptr& frame) {
    if (!m_transparent) return frame->pixels.get();
    if (frame != m_converted) {
        m_straight.resize(frame->pixel_count());
        unpremultiply(frame->pixels.get(), m_straight.data(), m_straight.size());
        m_converted = frame;
    }
    return m_straight.data();
}

}  // namespace pennywort::host
