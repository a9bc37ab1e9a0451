// host/output/picture.cpp - see the header for the contract.
#include "host/output/picture.h"

#include <algorithm>
#include <new>

namespace pennywort::host {

namespace {

constexpr std::size_t k_fewest = 4;
constexpr std::size_t k_most = 256;

}  // namespace

picture::picture(long wide, long high)
    : width(wide),
      height(high),
      pixels(std::make_unique_for_overwrite<std::uint32_t[]>(pixel_count())) {}

std::size_t picture::pixel_count() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

picture_pool::picture_pool(long width, long height, std::size_t limit)
    : m_width(width), m_height(height), m_limit(limit), m_shelf(std::make_shared<shelf>()) {}

std::size_t picture_pool::limit_for(long width, long height, std::size_t bytes) {
    const std::size_t each =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * sizeof(std::uint32_t);
    return std::clamp(bytes / each, k_fewest, k_most);
}

std::unique_ptr<picture> picture_pool::unused_or_new() {
    const std::lock_guard hold(m_shelf->lock);
    if (!m_shelf->unused.empty()) {
        auto last = std::move(m_shelf->unused.back());
        m_shelf->unused.pop_back();
        return last;
    }
    if (m_made == m_limit) return nullptr;
    try {
        m_shelf->unused.reserve(m_made + 1);  // so that giving one back never needs memory
        auto made = std::make_unique<picture>(m_width, m_height);
        ++m_made;
        return made;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

std::shared_ptr<picture> picture_pool::take() {
    auto owned = unused_or_new();
    if (!owned) return nullptr;
    return {owned.release(), [home = m_shelf](picture* back) {
                const std::lock_guard hold(home->lock);
                home->unused.emplace_back(back);
            }};
}

}  // namespace pennywort::host
