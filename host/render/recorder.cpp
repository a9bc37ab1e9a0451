// host/render/recorder.cpp - see the header for the contract.
#include "host/render/recorder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "core/limits.h"

namespace pennywort::host {

namespace {

// What a page says with a picture is stamped so much later than the picture is painted: the time
// that the runtime's own output would have kept it. It makes sound in pieces of 10 ms, which fall
// anywhere between two pictures, so that this is the middle of what was measured.
constexpr std::chrono::milliseconds k_sound_behind{29};

}  // namespace

void interval_spread::add(run::monotonic_clock::time::duration interval) {
    using steps = std::chrono::duration<std::int64_t, std::ratio<1, 10'000>>;
    const auto step = std::chrono::round<steps>(interval).count();
    ++m_counts[static_cast<std::size_t>(std::clamp<std::int64_t>(step, 0, k_steps - 1))];
    ++m_total;
}

double interval_spread::milliseconds_at(double share) const {
    if (m_total == 0) return 0;
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(m_total)));
    std::uint64_t seen = 0;
    for (std::size_t step = 0; step < k_steps; ++step) {
        seen += m_counts[step];
        if (seen >= std::max<std::uint64_t>(wanted, 1)) return static_cast<double>(step) / 10;
    }
    return static_cast<double>(k_steps - 1) / 10;
}

static std::unique_ptr<picture_pool> pool_for(long width, long height) {
    const auto limit = picture_pool::limit_for(width, height, k_max_waiting_picture_bytes);
    return std::make_unique<picture_pool>(width, height, limit);
}

recorder::recorder(long width, long height, const frame_rate& rate, writer_thread* writer,
                   bool is_exact, bool has_sound, std::uint64_t before)
    : m_width(width),
      m_height(height),
      m_rate(rate),
      m_interval(rate.time_of(1)),
      m_writer(writer),
      m_is_exact(is_exact),
      m_has_sound(has_sound && writer != nullptr),
      m_before(before),
      m_pool(pool_for(width, height)),
      m_token(std::make_shared<const picture>(1, 1)),
      m_pacer(m_interval, frame_pacer::lag_for(m_interval)) {}

void recorder::resize(long width, long height) {
    m_pool = pool_for(width, height);
    m_width = width;
    m_height = height;
}

void recorder::painted(const void* pixels, long width, long height, time_point at) {
    if (width != m_width || height != m_height) return;
    guarded([&] { arrived(m_writer ? keep(pixels) : m_token, at); });
}

// Without this, a want of memory would end the program on the ticker's thread, and the file with
// it.
template <class work_type>
void recorder::guarded(work_type work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        m_has_no_memory = true;
    }
}

picture_ptr recorder::keep(const void* pixels) {
    auto kept = m_pool->take();
    if (kept) std::memcpy(kept->pixels.get(), pixels, kept->byte_count());
    return kept;
}

void recorder::arrived(picture_ptr kept, time_point at) {
    const std::lock_guard hold(m_lock);
    if (m_pictures++ == 0) m_first_picture = at;
    if (!m_done && m_last_picture != time_point{}) m_intervals.add(at - m_last_picture);
    m_last_picture = at;
    if (m_is_exact) {
        m_next = std::move(kept);
        m_has_no_memory = m_has_no_memory || m_next == nullptr;
    } else {
        m_pacer.picture_came(at, std::move(kept));
    }
}

void recorder::tick(time_point at) {
    const std::lock_guard hold(m_lock);
    ++m_ticks;
    if (m_is_exact) {
        const bool is_fresh = m_next != nullptr;
        return take({m_ticks - 1, is_fresh, std::exchange(m_next, {}), 0}, at);
    }
    // The picture of this tick will be the next one of the film.
    if (m_has_sound && !m_done && m_ticks - 1 == m_first) {
        m_sound.begin(sound_position(m_counts.frames), at + k_sound_behind);
    }
    guarded([&] {
        if (const auto result = m_pacer.tick_sent(at)) take(*result, at);
    });
}

void recorder::take(const tick_result& result, time_point sent) {
    if (result.shown) {
        m_latest = result.shown;
        m_shown = false;
    }
    if (m_done || result.tick < m_first) return;
    count(result, sent);
    if (m_has_sound) hand_out_sound();
    if (result.tick + 1 == m_end) m_done = true;
}

// Of the first sample behind so many frames: counted anew each time, so that no error adds up.
std::int64_t recorder::sound_position(std::uint64_t frames) const {
    return samples_of(m_before + frames) - samples_of(m_before);
}

std::int64_t recorder::samples_of(std::uint64_t frames) const {
    const auto time = m_rate.time_of(frames);
    using samples = std::chrono::duration<std::int64_t, std::ratio<1, k_sound_rate>>;
    return std::chrono::round<samples>(time).count();
}

void recorder::hand_out_sound() {
    std::vector<float> ready;
    // Of the last two frames of an exact page not all is told.
    constexpr std::uint64_t k_untold = 2;
    if (!m_is_exact) {
        m_sound.take(sound_position(m_counts.frames), ready);
    } else if (m_counts.frames > k_untold) {
        m_exact_sound.take(sound_position(m_counts.frames - k_untold), ready);
    }
    m_writer->hear(std::move(ready));
}

void recorder::heard(const float* const* samples, long channels, long frames, time_point at) {
    if (!m_has_sound || m_is_exact) return;
    guarded([&] {
        const std::lock_guard hold(m_lock);
        // The film has a picture at its tick, which it was not painted with.
        m_sound.packet(samples, channels, frames, at - m_pacer.mean());
    });
}

void recorder::heard_exactly(const float* const* samples, long channels, long frames,
                             std::int64_t at) {
    if (!m_has_sound || !m_is_exact) return;
    guarded([&] {
        const std::lock_guard hold(m_lock);
        m_exact_sound.hear(samples, channels, frames, at);
    });
}

void recorder::fell_silent() {
    const std::lock_guard hold(m_lock);
    m_sound.pause();
}

bool recorder::is_waiting_for_sound() const {
    const std::lock_guard hold(m_lock);
    return m_has_sound && !m_is_exact && m_sound.is_missing(sound_position(m_counts.frames));
}

void recorder::end_sound() {
    if (!m_has_sound) return;
    guarded([&] {
        const std::lock_guard hold(m_lock);
        std::vector<float> rest;
        const std::int64_t end = sound_position(m_counts.frames);
        m_is_exact ? m_exact_sound.finish(end, rest) : m_sound.finish(end, rest);
        m_writer->hear(std::move(rest));
    });
}

void recorder::count(const tick_result& result, time_point now) {
    const bool lost = result.fresh && !result.shown;
    if (m_counts.frames == 0 || result.tick == m_first) m_counting_since = now - m_counts.counted;
    ++m_counts.frames;
    m_counts.counted = now - m_counting_since + m_interval;
    m_counts.painted += result.left_out + (lost ? 1 : 0) + (m_shown ? 0 : 1);
    m_counts.dropped += result.left_out + (lost ? 1 : 0);
    m_counts.repeated += m_shown ? 1 : 0;
    if (!m_writer) {
        m_shown = true;
    } else if (m_shown) {
        m_writer->show_again();
    } else if (m_latest) {
        m_writer->show(m_latest);
        m_shown = true;
    } else if (lost) {
        // The first frame has none before it to repeat: without this the output would lack a frame.
        m_has_no_memory = true;
    }
}

// The pool holds four at least: one that is shown again, one that is written, and two more.
bool recorder::has_room() const {
    constexpr std::uint64_t k_waiting = 2;
    const std::lock_guard hold(m_lock);
    return m_writer == nullptr || m_counts.frames < m_writer->written() + k_waiting;
}

void recorder::begin(std::uint64_t frames, std::uint64_t page_frame) {
    end_sound();
    const std::lock_guard hold(m_lock);
    m_exact_sound.begin(sound_position(m_counts.frames), samples_of(page_frame));
    m_first = m_ticks;
    m_end = m_first + frames;
    m_last_picture = {};
    m_shown = false;
    m_done = false;
}

void recorder::end() { m_done = true; }

recorder::time_point recorder::first_picture() const {
    const std::lock_guard hold(m_lock);
    return m_first_picture;
}

record_counts recorder::counts() const {
    const std::lock_guard hold(m_lock);
    record_counts counts = m_counts;
    counts.unchanged = m_writer ? m_writer->unchanged() : 0;
    counts.repeated += counts.unchanged;
    return counts;
}

interval_spread recorder::intervals() const {
    const std::lock_guard hold(m_lock);
    return m_intervals;
}

}  // namespace pennywort::host
