// host/output/film_settings.h - what a user may ask of a film beyond its name.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace pennywort::host {

struct film_settings {
    std::string codec;           // as --codec calls it; empty: the usual one of the kind of file
    std::optional<int> quality;  // 1 to 100; without it the codec's usual one
    std::string timecode;        // of the first frame; empty: none
    std::vector<std::string> ffmpeg_options;  // behind all others, so that they count

    bool are_usual() const {
        return codec.empty() && !quality && timecode.empty() && ffmpeg_options.empty();
    }
};

}  // namespace pennywort::host
