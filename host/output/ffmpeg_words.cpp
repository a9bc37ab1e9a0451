// host/output/ffmpeg_words.cpp - see the header for the contract.
#include "host/output/ffmpeg_words.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace pennywort::host {

namespace {

// The options of ffmpeg 4 to 7 that have no value; each other one takes the word behind it,
// whatever that begins with.
constexpr std::string_view k_flags[] = {
    "L",
    "accurate_seek",
    "an",
    "auto_conversion_filters",
    "autorotate",
    "autoscale",
    "benchmark",
    "benchmark_all",
    "bitexact",
    "bsfs",
    "buildconf",
    "codecs",
    "colors",
    "copy_unknown",
    "copyinkf",
    "copyts",
    "debug_ts",
    "decoders",
    "deinterlace",
    "demuxers",
    "devices",
    "dispositions",
    "dn",
    "dump",
    "encoders",
    "filters",
    "find_stream_info",
    "fix_sub_duration",
    "fix_sub_duration_heartbeat",
    "force_fps",
    "formats",
    "hex",
    "hide_banner",
    "hwaccels",
    "ignore_unknown",
    "layouts",
    "muxers",
    "n",
    "pix_fmts",
    "protocols",
    "psnr",
    "qphist",
    "re",
    "recast_media",
    "report",
    "sample_fmts",
    "shortest",
    "sn",
    "start_at_zero",
    "stats",
    "stdin",
    "version",
    "vn",
    "vstats",
    "xerror",
    "y",
};

bool is_one_of_them(std::string_view name) {
    return std::find(std::begin(k_flags), std::end(k_flags), name) != std::end(k_flags);
}

// "-copyinkf:v" is of one stream, and "-nostats" says no.
bool is_flag(std::string_view option) {
    const auto name = option.substr(1, option.find(':') - 1);
    const bool says_no = name.substr(0, 2) == "no" && is_one_of_them(name.substr(2));
    return says_no || is_one_of_them(name);
}

}  // namespace

std::string ffmpeg_words_complaint(const std::vector<std::string>& words) {
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (word.size() < 2 || word[0] != '-') {
            return "--ffmpeg-options: '" + word + "' is neither an option nor the value of one";
        }
        if (is_flag(word)) continue;
        if (++at == words.size()) return "--ffmpeg-options: " + word + " has no value";
    }
    return {};
}

}  // namespace pennywort::host
