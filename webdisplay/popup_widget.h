// popup_widget.h - what stands open over a page and paints by itself: a select list, a picker of
// dates or colours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pennywort::webdisplay {

// Lays it into the pictures of its page. Pixels are those of the runtime: B, G, R, A, colour
// multiplied by alpha. There is never more than one open in a page.
class popup_widget {
public:
    // Forgets the picture of the one before.
    void show(bool is_shown);
    // Its upper left corner in the page's picture; may lie outside.
    void place(int left, int top);
    // Without memory it is not to be seen until it paints again.
    void paint(const void* pixels, int width, int height);

    // It is open and has not painted yet.
    bool is_opening() const { return m_is_shown && m_pixels.empty(); }

    // `picture` with the widget over it: `picture` itself where none is to be seen, or for want of
    // memory. Valid until the next call.
    const void* laid_over(const void* picture, int width, int height);

private:
    void forget();
    void blend(int width, int height);

    bool m_is_shown = false;
    int m_left = 0;
    int m_top = 0;
    int m_width = 0;
    int m_height = 0;
    std::vector<std::uint8_t> m_pixels;
    std::vector<std::uint8_t> m_merged;
};

}  // namespace pennywort::webdisplay
