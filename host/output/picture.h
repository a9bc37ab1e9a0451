// host/output/picture.h - a painted picture, and the pool that its memory comes from and goes back
// to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace pennywort::host {

// width x height pixels as pixels.h describes them, rows from top to bottom.
struct picture {
    picture(long width, long height);

    std::size_t pixel_count() const;
    std::size_t byte_count() const { return pixel_count() * sizeof(std::uint32_t); }

    const long width;
    const long height;
    const std::unique_ptr<std::uint32_t[]> pixels;
};

using picture_ptr = std::shared_ptr<const picture>;

// Gives out at most `limit` pictures at a time, and uses each again when its last holder lets go.
// Memory is taken when first needed. Threads: any; pictures may outlive the pool.
class picture_pool {
public:
    picture_pool(long width, long height, std::size_t limit);

    // The number of pictures of that size that fit into `bytes`, but at least four: one
    // being painted, one being written, one to show again, one between them.
    static std::size_t limit_for(long width, long height, std::size_t bytes);

    // Null when all are given out, and when there is no memory for another one.
    std::shared_ptr<picture> take();

private:
    struct shelf {
        std::mutex lock;
        std::vector<std::unique_ptr<picture>> unused;
    };

    std::unique_ptr<picture> unused_or_new();

    const long m_width;
    const long m_height;
    const std::size_t m_limit;
    std::size_t m_made = 0;  // guarded by the shelf's lock
    std::shared_ptr<shelf> m_shelf;
};

}  // namespace pennywort::host
