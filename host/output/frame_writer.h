// host/output/frame_writer.h - what is done with the output frames: the interface over the kinds of
// file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "host/output/film_settings.h"
#include "host/output/frame_rate.h"
#include "host/output/picture.h"
#include "host/system/outcome.h"

namespace pennywort::host {

// Used by one thread at a time, in the order begin, show..., finish.
class frame_writer {
public:
    virtual ~frame_writer() = default;

    // Makes ready what can fail before the first frame.
    virtual outcome begin() = 0;
    // One output frame. The same picture again is one more frame that looks the same; it may be
    // kept for that, but not past the call of finish. May wait for the output to take it.
    virtual outcome show(const picture_ptr& frame) = 0;
    // Only where the format has sound: the next samples, left and right in turn. They belong behind
    // those of the call before, the first of them to the beginning of the first frame.
    virtual outcome hear(std::span<const float>) { return outcome::fine(); }
    // All of finish but what cannot be taken back: until finish, the output may still have to leave
    // what it replaces as it was. finish does it where this was not called.
    virtual outcome complete() { return outcome::fine(); }
    // What belongs to this output has failed, or its own frame before it came here, so that it
    // replaces nothing. Before finish.
    virtual void other_has_failed() {}
    // What becomes of a file that was there then, as a part of a line; empty where there was none.
    virtual std::string fate_beside_failure() const { return {}; }
    // Completes the output, so that what was shown can be played, also after show has failed.
    virtual outcome finish() = 0;
};

// Of all sound: stereo.
constexpr std::int64_t k_sound_rate = 48'000;
constexpr std::size_t k_sound_channels = 2;

struct output_target;

struct frame_format {
    long width = 0;
    long height = 0;
    frame_rate rate = *frame_rate::parse("50");
    bool transparent = false;
    bool has_sound = false;      // hear is called, too
    bool is_interlaced = false;  // two fields in each frame, the top one first
    film_settings film;
};

// The format of the film that is made of a page of that one: of two frames of an interlaced one
// becomes one.
frame_format film_format_of(const frame_format& page);

// For every kind but none. `standard_output` is where the path "-" goes; it stays the caller's.
// Never null.
std::unique_ptr<frame_writer> make_frame_writer(const output_target& target,
                                                const frame_format& format,
                                                std::FILE* standard_output);

// What takes the frames of a page of that format: `output`, and beside it `key`, if there is one.
std::unique_ptr<frame_writer> make_page_writer(const output_target& output,
                                               const output_target* key, const frame_format& page,
                                               std::FILE* standard_output);

}  // namespace pennywort::host
