// popup_widget.cpp - see the header for the contract.
#include "webdisplay/popup_widget.h"

#include <algorithm>

namespace pennywort::webdisplay {

namespace {

constexpr std::size_t k_channels = 4;

std::size_t bytes_of(int width, int height) {
    return k_channels * static_cast<std::size_t>(std::max(width, 0)) *
           static_cast<std::size_t>(std::max(height, 0));
}

// False for want of memory; the bytes are empty then.
bool copy(std::vector<std::uint8_t>& bytes, const void* pixels, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(pixels);
    try {
        bytes.assign(first, first + size);
        return true;
    } catch (...) {
        bytes = std::vector<std::uint8_t>();
        return false;
    }
}

// Of one line.
void blend_line(const std::uint8_t* over, std::uint8_t* under, int pixels) {
    for (int i = 0; i < pixels; ++i, over += k_channels, under += k_channels) {
        const unsigned seen_through = 255U - over[3];
        for (std::size_t channel = 0; channel < k_channels; ++channel) {
            const unsigned left = (under[channel] * seen_through + 127U) / 255U;
            under[channel] = static_cast<std::uint8_t>(std::min(over[channel] + left, 255U));
        }
    }
}

}  // namespace

void popup_widget::show(bool is_shown) {
    forget();
    m_is_shown = is_shown;
}

void popup_widget::place(int left, int top) {
    m_left = left;
    m_top = top;
}

void popup_widget::paint(const void* pixels, int width, int height) {
    if (!copy(m_pixels, pixels, bytes_of(width, height))) return forget();
    m_width = width;
    m_height = height;
}

const void* popup_widget::laid_over(const void* picture, int width, int height) {
    if (!m_is_shown || m_pixels.empty()) return picture;
    if (!copy(m_merged, picture, bytes_of(width, height))) return picture;
    blend(width, height);
    return m_merged.data();
}

void popup_widget::forget() {
    m_pixels = std::vector<std::uint8_t>();
    m_merged = std::vector<std::uint8_t>();
    m_width = 0;
    m_height = 0;
}

// What lies outside the picture is cut off.
void popup_widget::blend(int width, int height) {
    const std::int64_t left = std::max(m_left, 0);
    const std::int64_t right = std::min<std::int64_t>(std::int64_t{m_left} + m_width, width);
    const std::int64_t top = std::max(m_top, 0);
    const std::int64_t bottom = std::min<std::int64_t>(std::int64_t{m_top} + m_height, height);
    if (left >= right) return;
    for (std::int64_t line = top; line < bottom; ++line) {
        const auto over = static_cast<std::size_t>((line - m_top) * m_width + (left - m_left));
        const auto under = static_cast<std::size_t>(line * width + left);
        blend_line(&m_pixels[over * k_channels], &m_merged[under * k_channels],
                   static_cast<int>(right - left));
    }
}

}  // namespace pennywort::webdisplay
