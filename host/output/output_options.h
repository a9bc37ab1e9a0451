// host/output/output_options.h - the options of a command that say how its output is made.
#pragma once

#include <optional>
#include <string>

#include "host/output/frame_writer.h"
#include "host/output/output_target.h"

namespace pennywort::host {

class option_parser;

class output_options {
public:
    void add_to(option_parser& parser);

    // Takes what was given into `format`, which is the page's, and `key`. `output` is already what
    // -o asks for. What is wrong, in one line; empty if nothing is.
    std::string take(const output_target& output, frame_format& format,
                     std::optional<output_target>& key) const;

private:
    std::string take_film(film_settings& film) const;
    std::string take_key(const output_target& output, frame_format& format,
                         std::optional<output_target>& key) const;

    std::string m_quality;
    std::string m_codec;
    std::string m_ffmpeg_options;
    std::string m_key;
    std::string m_timecode;
    bool m_is_interlaced = false;
};

}  // namespace pennywort::host
