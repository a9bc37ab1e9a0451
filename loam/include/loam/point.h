// loam/point.h - zPoint, a pair of 32-bit coordinates.
#pragma once

#include <cstdint>

#include "loam/export.h"

class LOAM_API zPoint {
public:
    zPoint() = default;  // 0, 0
    zPoint(const zPoint& other) = default;
    zPoint& operator=(const zPoint& other) = default;

    void Set(std::int32_t x, std::int32_t y);
    std::int32_t X() const;
    std::int32_t Y() const;

    friend bool operator==(const zPoint& a, const zPoint& b) = default;

private:
    std::int32_t m_x = 0;
    std::int32_t m_y = 0;
};
