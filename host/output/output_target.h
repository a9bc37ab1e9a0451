// host/output/output_target.h - what the text behind -o asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

enum class output_kind {
    none,        // only measure
    png,         // one picture: the last frame
    png_series,  // one picture per frame
    y4m,
    raw,
    matroska,  // a stream of uncompressed frames
    wav,       // sound alone
    // From here on all are made by ffmpeg.
    mkv,
    mov,
    mp4,
    webm,
    gif,
    jpg,  // one picture, as with png
    jpg_series,
    webp,
    webp_series,
};

// One picture: the last frame.
bool is_single_picture(output_kind kind);
// One file per frame.
bool is_series(output_kind kind);
bool is_made_by_ffmpeg(output_kind kind);
bool holds_sound(output_kind kind);

// The name of a series of files with the place of the number in it, as in "frames-%05d.png".
class name_pattern {
public:
    // Takes a text with exactly one %d, %5d or %05d; %% stands for a percent sign. Nothing, and a
    // reason, for any other.
    static std::optional<name_pattern> parse(std::string_view text, std::string& reason);

    // What a text without a place for the number stands for; nothing where it has one, or a single
    // percent sign.
    static std::optional<std::string> plain_name(std::string_view text);

    std::string name_of(std::uint64_t number) const;
    // The name without the number and without the digits and blanks beside it: a series has no name
    // in common with another one that differs in this.
    std::string fixed_name() const;
    // The same pattern as ffmpeg takes it; nothing where it cannot: it has no blanks before a
    // number.
    std::optional<std::string> for_ffmpeg() const;

private:
    bool take_conversion(std::string_view text, std::size_t& at);

    std::string m_before;
    std::string m_behind;
    std::size_t m_width = 0;
    char m_filler = ' ';
};

// Whether --format takes it: y4m, raw or matroska.
bool is_stream_format(std::string_view format);

struct output_target {
    output_kind kind = output_kind::none;
    std::string path;  // "-" is standard output
    std::optional<name_pattern> pattern;

    bool to_standard_output() const { return path == "-"; }
    // Whether it is for a file, which nobody waits for: not for a pipe or a device. Asks the
    // system.
    bool is_file() const;

    // `format` is empty or one that is_stream_format knows. It decides where the name does not: on
    // standard output, where empty means y4m, and for names without a known ending, such as a named
    // pipe's. Nothing, and a reason, if they contradict each other or nothing is known.
    static std::optional<output_target> parse(std::string_view text, std::string_view format,
                                              std::string& reason);
};

}  // namespace pennywort::host
