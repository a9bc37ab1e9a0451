// loam/point.cpp - see the header for the contract.
#include "loam/point.h"

void zPoint::Set(std::int32_t x, std::int32_t y) {
    m_x = x;
    m_y = y;
}

std::int32_t zPoint::X() const { return m_x; }

std::int32_t zPoint::Y() const { return m_y; }
