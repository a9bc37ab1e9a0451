// unseen_frame.h - the last picture of a page that its host has not been shown.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace pennywort::webdisplay {

// UI thread.
class unseen_frame {
public:
    // Copies it: the buffer is the runtime's, and gone with its call.
    void keep(const void* buffer, int width, int height) {
        const auto* bytes = static_cast<const unsigned char*>(buffer);
        m_bytes.assign(bytes, bytes + std::size_t(4) * static_cast<std::size_t>(width) *
                                          static_cast<std::size_t>(height));
        m_width = width;
        m_height = height;
    }
    void forget() { m_bytes.clear(); }

    // Shows what is kept, once; false where there is none.
    bool show(const std::function<void(const void* buffer, int width, int height)>& shown) {
        if (m_bytes.empty()) return false;
        const std::vector<unsigned char> bytes = std::exchange(m_bytes, {});
        shown(bytes.data(), m_width, m_height);
        return true;
    }

private:
    std::vector<unsigned char> m_bytes;
    int m_width = 0;
    int m_height = 0;
};

}  // namespace pennywort::webdisplay
