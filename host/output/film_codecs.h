// host/output/film_codecs.h - which codecs ffmpeg is to use for which kind of file, and what each
// of them can.
#pragma once

#include <string>
#include <vector>

#include "host/output/frame_writer.h"
#include "host/output/output_target.h"

namespace pennywort::host {

// The sides of a picture in which colour has half the resolution; an odd one cannot be halved.
enum class halved_colour {
    none,
    across,
    both,
};

struct film_codec {
    const char* name;  // as --codec calls it
    bool keeps_alpha;
    bool has_quality;
    bool has_fields;       // can hold two fields in a frame
    halved_colour halved;  // of an opaque film
    long least_side;       // in pixels; the encoder refuses smaller pictures
    long most_side;        // and larger ones
    // ffmpeg's arguments up to the pixel format.
    void (*append)(std::vector<std::string>& to, output_kind kind, const frame_format& format);
};

// The codec for such a file: the one asked for, or the usual one. Null where that kind has none of
// that name, or none that keeps the alpha that `format` has.
const film_codec* codec_of(output_kind kind, const frame_format& format);

// Why `kind` cannot hold a film of that format and with those settings, in one line; empty if it
// can. Known without asking ffmpeg.
std::string film_complaint(const output_target& target, const frame_format& format);

}  // namespace pennywort::host
