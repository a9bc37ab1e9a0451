// host/output/writer_thread.h - hands output frames to a writer on a thread of its own, so that
// neither the display thread nor the ticks ever wait for a disk or a pipe.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// The pool that the pictures come from bounds how many can wait. A frame that repeats the one
// before it takes no memory, so a reader may pause for any time.
class writer_thread {
public:
    // `writer` has begun already.
    explicit writer_thread(std::unique_ptr<frame_writer> writer);
    // Drops what still waits; waits for the frame that is being written.
    ~writer_thread();
    writer_thread(const writer_thread&) = delete;
    writer_thread& operator=(const writer_thread&) = delete;

    // From any thread, without waiting. After a failure frames are dropped.
    void show(picture_ptr frame);
    // The frame before once more; nothing if there was none.
    void show_again();

    // The sound that follows, left and right in turn. Where more waits than there is room for, as
    // behind a reader that pauses, it becomes silence of the same length.
    void hear(std::vector<float> samples);

    // Whether a frame could not be written; finish tells the reason.
    bool has_failed() const { return m_has_failed; }
    // Frames that the writer has taken so far.
    std::uint64_t written() const { return m_written; }
    // Pictures among them that looked exactly as the one before: a page paints those too, and who
    // watches the output sees a repeated frame.
    std::uint64_t unchanged() const { return m_unchanged; }

    // Of those that were written, how many show the picture before them again.
    std::uint64_t repeated() const { return m_repeated; }

    // Asks for the end behind what still waits. Without waiting.
    void request_finish();
    // Whether all is written and the output complete.
    bool has_finished() const { return m_has_finished; }
    // request_finish, and waits for it. The first failure, if there was one.
    outcome finish();

private:
    struct entry {
        picture_ptr frame;  // null: the one before once more
        std::uint64_t times;
        std::vector<float> sound = {};
        std::size_t silence = 0;  // floats of it
    };

    void run();
    template <class work_type>
    void guarded(work_type work);
    bool next(entry& out);
    void write(const entry& todo);
    outcome write_sound(const entry& todo);
    bool looks_as_before(const picture& frame) const;
    void complete();
    void keep(const outcome& result);

    std::unique_ptr<frame_writer> m_writer;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<entry> m_waiting;
    std::size_t m_waiting_sound = 0;  // floats in it
    bool m_has_shown = false;
    bool m_is_ending = false;
    picture_ptr m_previous;               // what the writer was given last; of the thread's own
    outcome m_outcome = outcome::fine();  // of the thread's own until it has ended
    std::atomic<bool> m_has_failed{false};
    std::atomic<bool> m_is_abandoned{false};
    std::atomic<bool> m_has_finished{false};
    std::atomic<std::uint64_t> m_written{0};
    std::atomic<std::uint64_t> m_unchanged{0};
    std::atomic<std::uint64_t> m_repeated{0};
    std::thread m_thread;
};

}  // namespace pennywort::host
