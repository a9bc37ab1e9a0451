// host/live/live_picture.cpp - see the header for the contract.
#include "host/live/live_picture.h"

#include <png.h>

#include <cstring>
#include <exception>
#include <utility>
#include <vector>

#include "host/output/pixels.h"

namespace pennywort::host {

namespace {

// One being painted, the newest, one being encoded, and one between them.
constexpr std::size_t k_picture_count = 4;

// An encoded picture that is older than this is not shown once a newer one has been painted.
constexpr std::chrono::milliseconds k_fresh{1000};

// So long after a question the next one is expected, and a picture kept ready that is no older than
// k_ready.
constexpr std::chrono::milliseconds k_watched{3000};
constexpr std::chrono::milliseconds k_ready{200};

std::string encoded(const picture& frame) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(frame.width);
    image.height = static_cast<png_uint_32>(frame.height);
    image.flags = PNG_IMAGE_FLAG_FAST;
    image.format = PNG_FORMAT_BGR;
    std::vector<std::uint8_t> opaque(frame.pixel_count() * 3);
    drop_alpha(frame.pixels.get(), opaque.data(), frame.pixel_count());
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string file(size, '\0');
    const int made =
        png_image_write_to_memory(&image, file.data(), &size, 0, opaque.data(), 0, nullptr);
    file.resize(made ? size : 0);
    // Readers that take their time hold on to theirs, and it is much smaller than it might have
    // been.
    file.shrink_to_fit();
    return file;
}

}  // namespace

std::string png_of(const picture& frame) {
    try {
        return encoded(frame);
    } catch (const std::exception&) {
        return {};
    }
}

live_pictures::live_pictures() : m_thread([this] { run(); }) {}

live_pictures::~live_pictures() {
    {
        const std::lock_guard hold(m_lock);
        m_is_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

std::shared_ptr<picture> live_pictures::room_for(long width, long height) {
    if (!m_pool || width != m_width || height != m_height) {
        m_pool = std::make_unique<picture_pool>(width, height, k_picture_count);
        m_width = width;
        m_height = height;
    }
    return m_pool->take();
}

void live_pictures::painted(const void* pixels, long width, long height) {
    const auto copy = room_for(width, height);
    if (copy) std::memcpy(copy->pixels.get(), pixels, copy->byte_count());
    {
        const std::lock_guard hold(m_lock);
        const bool is_unseen = m_newest_number > m_taken_number;
        ++m_counts.painted;
        if (!copy || is_unseen) ++m_counts.dropped;
        if (!copy) return;
        m_newest = copy;
        ++m_newest_number;
    }
    m_wake.notify_one();
}

std::shared_ptr<const std::string> live_pictures::take(std::uint64_t after, std::uint64_t& number) {
    const std::lock_guard hold(m_lock);
    m_is_wanted = true;
    m_asked = clock::now();
    m_wake.notify_one();
    // The reader's number is from another run of the program.
    if (after > m_newest_number) after = 0;
    const bool is_stale = m_newest_number > m_png_number && m_asked - m_png_time > k_fresh;
    if (m_png_number <= after || is_stale) return nullptr;
    number = m_png_number;
    return m_png;
}

live_picture_counts live_pictures::counts() const {
    const std::lock_guard hold(m_lock);
    return m_counts;
}

// Looked at with each picture that is painted and each question.
bool live_pictures::is_due() const {
    if (m_newest_number == m_png_number) return false;
    const auto now = clock::now();
    return m_is_wanted || (now - m_asked < k_watched && now - m_png_time > k_ready);
}

void live_pictures::run() {
    std::unique_lock hold(m_lock);
    for (;;) {
        m_wake.wait(hold, [this] { return m_is_stopping || is_due(); });
        if (m_is_stopping) return;
        m_is_wanted = false;
        auto frame = m_newest;
        const auto number = m_taken_number = m_newest_number;
        hold.unlock();
        auto png = std::make_shared<const std::string>(png_of(*frame));
        frame.reset();
        hold.lock();
        m_png = std::move(png);
        m_png_number = number;
        m_png_time = clock::now();
        ++m_counts.encoded;
    }
}

}  // namespace pennywort::host
