// host/live/live_picture.h - the newest picture of a display as a PNG, made on a thread of its own
// and only while somebody asks.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "host/output/picture.h"

namespace pennywort::host {

struct live_picture_counts {
    std::uint64_t painted = 0;
    std::uint64_t encoded = 0;
    std::uint64_t dropped = 0;  // painted pictures that no reader was waiting for
};

class live_pictures {
public:
    live_pictures();
    // Waits for the picture that is being encoded.
    ~live_pictures();
    live_pictures(const live_pictures&) = delete;
    live_pictures& operator=(const live_pictures&) = delete;

    // Takes a copy of what was painted, as pixels.h describes it, and never waits for a reader or
    // the encoder. For the display thread.
    void painted(const void* pixels, long width, long height);

    // The newest picture that has been encoded if its number is above `after`, or if `after` is
    // above every number that there was; null while there is none, or only an old one. Either way
    // the next one is encoded, and for a while after that at least a few a second, so that who asks
    // seldom gets a fresh one too. From any thread, without waiting.
    std::shared_ptr<const std::string> take(std::uint64_t after, std::uint64_t& number);

    live_picture_counts counts() const;

private:
    using clock = std::chrono::steady_clock;

    void run();
    bool is_due() const;
    std::shared_ptr<picture> room_for(long width, long height);

    std::unique_ptr<picture_pool> m_pool;  // display thread
    long m_width = 0;
    long m_height = 0;

    mutable std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_is_stopping = false;
    bool m_is_wanted = false;
    clock::time_point m_asked{};  // when a reader asked last
    picture_ptr m_newest;
    std::uint64_t m_newest_number = 0;
    std::uint64_t m_taken_number = 0;  // of the one that the encoder took last
    std::shared_ptr<const std::string> m_png;
    std::uint64_t m_png_number = 0;
    clock::time_point m_png_time{};
    live_picture_counts m_counts;
    std::thread m_thread;
};

// A PNG of the picture without its alpha, which shows it over black; empty if there is no memory.
std::string png_of(const picture& frame);

}  // namespace pennywort::host
