// host/render/recorder.h - brings the painted pictures and the ticks of the page's clock together,
// and hands one output frame per tick to the writer.
//
// Threads: painted belongs to the display thread, tick to the ticker; the others may be called from
// any thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "core/run/clock.h"
#include "host/output/frame_rate.h"
#include "host/output/picture.h"
#include "host/output/writer_thread.h"
#include "host/render/exact_sound.h"
#include "host/render/frame_pacer.h"
#include "host/render/sound_track.h"

namespace pennywort::host {

// What became of the pages' pictures while frames counted: frames = painted - dropped - unchanged +
// repeated.
struct record_counts {
    std::uint64_t frames = 0;    // output frames
    std::uint64_t painted = 0;   // pictures that the pages painted
    std::uint64_t repeated = 0;  // output frames that show the picture of the one before again
    std::uint64_t dropped = 0;   // painted pictures that are in no output frame
    // Pictures that look exactly as the one before; their frames are repeated ones. None is known
    // where nothing is written.
    std::uint64_t unchanged = 0;
    run::monotonic_clock::time::duration counted{};  // from the first to the end of the last tick
};

// The spread of the time between two pictures, in steps of 0.1 ms.
class interval_spread {
public:
    void add(run::monotonic_clock::time::duration interval);
    // The interval that the part `share` (0 to 1) of all does not exceed; 0 when there is none.
    double milliseconds_at(double share) const;

private:
    static constexpr std::size_t k_steps = 10'000;  // the last one holds everything above 1 s

    std::array<std::uint32_t, k_steps> m_counts{};
    std::uint64_t m_total = 0;
};

class recorder {
public:
    using time_point = run::monotonic_clock::time;

    // Without a writer pictures are counted but not kept. The writer must outlive the recorder's
    // last tick.
    // `is_exact`: the pictures between two ticks belong to the second one, and to no other.
    // `has_sound`: so do they with what the page says. `before`: frames of the whole film before
    // this piece of it, so that pieces have as many samples together as the whole.
    recorder(long width, long height, const frame_rate& rate, writer_thread* writer,
             bool is_exact = false, bool has_sound = false, std::uint64_t before = 0);

    // From the next picture on. Between two pages' frames, on the display thread.
    void resize(long width, long height);
    long width() const { return m_width; }
    long height() const { return m_height; }

    // One painted frame. One of another size is not counted: the page has not followed its display
    // yet.
    void painted(const void* pixels, long width, long height, time_point at);
    void tick(time_point at);
    // What the page says, of which `at` is the time that the runtime gives it. From any thread.
    void heard(const float* const* samples, long channels, long frames, time_point at);
    void fell_silent();
    // The same of an exact film: `at` is the place of the first of these samples in the page's own
    // time. It comes before the tick of the frame that is two frames later.
    void heard_exactly(const float* const* samples, long channels, long frames, std::int64_t at);
    // Whether one of these found no memory. Then a frame is missing, and the run is to end.
    bool has_no_memory() const { return m_has_no_memory; }

    // Whether the writer has room for one more picture without leaving one out.
    bool has_room() const;

    // The next `frames` ticks are output frames. `page_frame`: the number of the first of them in
    // its page, of an exact film.
    void begin(std::uint64_t frames, std::uint64_t page_frame = 0);
    // Output frames end with the tick that is decided now.
    void end();
    // Whether sound of the frames so far is still on its way.
    bool is_waiting_for_sound() const;
    // The sound ends with the frames so far. After the last tick, and before the writer's end.
    void end_sound();
    // Whether all frames of the last begin are handed over.
    bool is_done() const { return m_done; }

    // Pictures so far, counted or not, and when the first one came.
    std::uint64_t pictures() const { return m_pictures; }
    time_point first_picture() const;

    record_counts counts() const;
    interval_spread intervals() const;

private:
    picture_ptr keep(const void* pixels);
    template <class work_type>
    void guarded(work_type work);
    void arrived(picture_ptr kept, time_point at);
    void take(const tick_result& result, time_point sent);
    void count(const tick_result& result, time_point now);
    std::int64_t samples_of(std::uint64_t frames) const;
    std::int64_t sound_position(std::uint64_t frames) const;
    void hand_out_sound();

    long m_width;
    long m_height;
    const frame_rate m_rate;
    const run::monotonic_clock::time::duration m_interval;
    writer_thread* const m_writer;
    const bool m_is_exact;
    const bool m_has_sound;
    const std::uint64_t m_before;
    std::unique_ptr<picture_pool> m_pool;
    const picture_ptr m_token;  // stands for every picture where none is kept
    std::atomic<std::uint64_t> m_pictures{0};
    std::atomic<bool> m_done{true};
    std::atomic<bool> m_has_no_memory{false};

    mutable std::mutex m_lock;  // guards what follows
    frame_pacer m_pacer;
    sound_track m_sound;
    exact_sound m_exact_sound;
    picture_ptr m_next;  // of an exact one: since the last tick
    std::uint64_t m_ticks = 0;
    std::uint64_t m_first = 0;  // output frames are the ticks from here...
    std::uint64_t m_end = 0;    // ...to before this one
    picture_ptr m_latest;       // the picture of the last decided tick
    bool m_shown = false;       // whether the writer has m_latest
    record_counts m_counts;
    time_point m_counting_since{};
    time_point m_first_picture{};
    time_point m_last_picture{};
    interval_spread m_intervals;
};

}  // namespace pennywort::host
