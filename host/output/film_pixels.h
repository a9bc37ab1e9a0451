// host/output/film_pixels.h - the pixels of a picture as a film takes them.
#pragma once

#include <cstdint>
#include <vector>

#include "host/output/picture.h"

namespace pennywort::host {

// A film with alpha wants colour that is free of it. A picture that is shown again is not converted
// again.
class film_pixels {
public:
    explicit film_pixels(bool transparent) : m_transparent(transparent) {}

    // Valid until the next call, and as long as the picture is.
    const void* of(const picture_ptr& frame);
    // Lets the last picture go.
    void forget() { m_converted.reset(); }

private:
    const bool m_transparent;
    picture_ptr m_converted;  // what m_straight holds
    std::vector<std::uint32_t> m_straight;
};

}  // namespace pennywort::host
