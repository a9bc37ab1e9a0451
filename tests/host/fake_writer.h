// tests/host/fake_writer.h - a writer that notes what it is given, and can be held up or fail; and
// what tests give to writers, real ones too.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "host/output/frame_writer.h"
#include "host/output/stream_writers.h"
#include "tests/support/eventually.h"

namespace pennywort::host {

// Shared with the test, since a writer belongs to its thread.
struct writer_log {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::uint32_t> shown;  // the first pixel of each frame
    std::vector<float> heard;
    bool held = false;  // show waits
    int waiting = 0;    // shows that wait
    std::size_t fail_at = ~std::size_t(0);
    std::string finish_failure;
    int finished = 0;

    std::vector<std::uint32_t> frames() {
        const std::lock_guard hold(lock);
        return shown;
    }
    void hold_up(bool on) {
        {
            const std::lock_guard hold(lock);
            held = on;
        }
        changed.notify_all();
    }
    void wait_until_one_waits() {
        std::unique_lock hold(lock);
        EXPECT_TRUE(changed.wait_for(hold, tests::k_patience, [this] { return waiting > 0; }));
    }
};

class fake_writer : public frame_writer {
public:
    explicit fake_writer(std::shared_ptr<writer_log> log) : m_log(std::move(log)) {}

    outcome begin() override { return outcome::fine(); }

    outcome show(const picture_ptr& frame) override {
        std::unique_lock hold(m_log->lock);
        ++m_log->waiting;
        m_log->changed.notify_all();
        EXPECT_TRUE(
            m_log->changed.wait_for(hold, tests::k_patience, [this] { return !m_log->held; }));
        --m_log->waiting;
        if (m_log->shown.size() == m_log->fail_at) return outcome::failed("the disk is full");
        m_log->shown.push_back(frame->pixels[0]);
        return outcome::fine();
    }

    outcome hear(std::span<const float> samples) override {
        const std::lock_guard hold(m_log->lock);
        m_log->heard.insert(m_log->heard.end(), samples.begin(), samples.end());
        return outcome::fine();
    }

    outcome finish() override {
        const std::lock_guard hold(m_log->lock);
        ++m_log->finished;
        return m_log->finish_failure.empty() ? outcome::fine()
                                             : outcome::failed(m_log->finish_failure);
    }

private:
    const std::shared_ptr<writer_log> m_log;
};

inline picture_ptr picture_of(std::uint32_t colour, long width = 1, long height = 1) {
    auto made = std::make_shared<picture>(width, height);
    for (std::size_t i = 0; i < made->pixel_count(); ++i) made->pixels[i] = colour;
    return made;
}

inline frame_format format_of(long width, long height, const char* rate = "50") {
    frame_format format;
    format.width = width;
    format.height = height;
    format.rate = *frame_rate::parse(rate);
    return format;
}

inline sink_opener into_file(const std::string& path) {
    return [path](byte_sink& sink) { return sink.open(path); };
}

}  // namespace pennywort::host
