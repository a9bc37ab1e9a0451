// host/render/render_command.cpp - see the header for the contract.
#include "host/render/render_command.h"

#include <algorithm>
#include <cmath>

#include "core/limits.h"
#include "core/text/numbers.h"
#include "host/app/option_parser.h"
#include "host/app/option_values.h"
#include "host/app/page_address.h"
#include "host/output/output_file.h"
#include "host/render/page_setup.h"
#include "host/render/render.h"

namespace pennywort::host {

namespace {

constexpr double k_usual_seconds = 10;

}  // namespace

const char* render_command::footer() const {
    return R"(Examples:
  pennywort render page.html -o page.png
  pennywort render lower-third.html --transparent --seconds 8 -o lower-third.mov
  pennywort render https://example.com --size 1920x1080 --fps 59.94 --format matroska -o - | ffplay -
  pennywort render page.html --seconds 5 --json
  pennywort render score.html --feed wss://example.com/goals --on-message 'show(JSON.parse(message))' -o score.mkv
Exit status: 0 done, 1 failed, 2 wrong arguments, 4 done, but --strict minds
what the page says, 129, 130 or 143 interrupted (the file is complete).)";
}

void render_command::add_options(option_parser& parser) {
    add_page_options(parser);
    m_page.add_options(parser);
    add_feed_options(parser);
    add_output_options(parser);
    add_flags(parser);
    parser.refuse_empty_values();
}

void render_command::add_page_options(option_parser& parser) {
    parser.add_option("pages", m_raw.pages, "URLs or files, shown one after another").required();
    parser.add_option("--size", m_raw.size, "Width and height in pixels, 1 to 16384")
        .type_name("WxH")
        .shows_default();
    parser.add_option("--fps", m_raw.fps, "Frame rate, 1 to 240: 50, 59.94, 30000/1001")
        .type_name("RATE")
        .shows_default();
    parser.add_option("--frames", m_raw.frames, "Output frames of each page").type_name("N");
    parser.add_option("--seconds", m_raw.seconds, "The same as a time; 10 without either")
        .type_name("S");
    parser
        .add_option("--from", m_raw.from,
                    "Of an exact film: begin so many seconds into it; the page lives through them "
                    "unseen")
        .type_name("S");
    parser.add_flag("--fast-forward", m_options.is_fast_forward,
                    "Of --from: do not draw what lies before it, which is much faster where a page "
                    "is hard to draw. Parts that a page keeps as they were first drawn "
                    "(will-change) may look otherwise than in the whole film");
    parser.add_option("--to", m_raw.to, "The end of the film as a time of it, instead of a length")
        .type_name("S");
    parser.add_flag("--endless", m_raw.is_endless,
                    "Go on until Ctrl-C, or until the reader closes");
    parser.add_flag("--transparent", m_options.format.transparent, "Keep the page's alpha");
    parser.add_option("--css", m_raw.css, "Style sheet put into each page").type_name("FILE");
    parser.add_option("--script", m_raw.script, "JavaScript run in each page once it has loaded")
        .type_name("FILE");
    parser
        .add_option("--wait-for", m_raw.wait_for,
                    "Expression that has to be true before frames count")
        .type_name("JS");
    parser.add_option("--timeout", m_raw.timeout, "Longest wait for a page, in seconds")
        .type_name("S")
        .shows_default();
}

void render_command::add_feed_options(option_parser& parser) {
    parser.add_option("--feed", m_raw.feed, "WebSocket whose messages go to the page")
        .type_name("URL");
    parser
        .add_option(
            "--on-message", m_raw.on_message,
            "JavaScript run for each of them, which is the text 'message'; @FILE for a file")
        .type_name("JS");
}

void render_command::add_output_options(option_parser& parser) {
    parser
        .add_option(
            "-o,--output", m_raw.output,
            "out.mov, .mp4, .mkv, .webm, .gif, .wav, .y4m or .raw; out.png, .jpg or .webp (the "
            "last frame), f-%05d.png; - for a pipe; without it only measure")
        .type_name("NAME");
    parser
        .add_option("--format", m_raw.format,
                    "matroska (RGB, for players), y4m or raw (BGRA), where the name does not say "
                    "it")
        .type_name("FORMAT");
    m_output_options.add_to(parser);
    parser.add_option("--pacing", m_raw.pacing, "What drives the browser: request or timer")
        .type_name("HOW")
        .shows_default();
    parser
        .add_option("--host-clock", m_raw.host_clock,
                    "Of --live. on: the page's clock ticks once per frame; off: it runs free")
        .type_name("on|off");
}

void render_command::add_flags(option_parser& parser) {
    parser.add_flag(
        "--exact", m_raw.is_exact,
        "The page's time is its own: each frame at its moment, none repeated or missed, "
        "however long it takes. A file has it without");
    parser.add_flag("--live", m_raw.is_live,
                    "The page's time is the day's, and what comes too late is repeated. A pipe, "
                    "--endless and a measurement have it without");
    parser.add_flag("--free-run", m_raw.is_free_running, "The same as --host-clock off");
    parser.add_flag("--mute", m_options.is_muted,
                    "The page is silent, and so is its film (.mov, .mp4, .mkv, .webm, .wav and "
                    "matroska have sound)");
    parser.add_flag("--gpu", m_options.gpu, "Use the machine's display and GPU");
    parser.add_flag("--json", m_options.json, "Print one last line of what happened");
    parser.add_flag("--verbose", m_options.verbose,
                    "Also print traces and what pages say: console lines, errors, resources that "
                    "failed");
    parser.add_flag("--quiet", m_options.is_quiet,
                    "Print only what is wrong, and what --json asks for");
    parser.add_flag("--strict", m_options.is_strict,
                    "End with status 4 where a page had an uncaught error, a rejected promise, a "
                    "failed resource or an error in its console");
    parser.add_flag("--browser-log", m_options.hears_browser, "Also print the browser's own lines");
}

std::string render_command::take_arguments() {
    for (const auto take : {&render_command::take_picture_format, &render_command::take_output,
                            &render_command::take_length, &render_command::take_choices,
                            &render_command::take_page_settings, &render_command::take_picture_size,
                            &render_command::take_film, &render_command::take_texts,
                            &render_command::take_feed_options, &render_command::take_addresses}) {
        std::string wrong = (this->*take)();
        if (!wrong.empty()) return wrong;
    }
    return {};
}

std::string render_command::take_picture_format() {
    const std::string wrong = take_size(m_raw.size, m_options.format);
    return wrong.empty() ? take_rate(m_raw.fps, m_options.format) : wrong;
}

std::string render_command::take_output() {
    const std::string& format = m_raw.format;
    if (!format.empty() && !is_stream_format(format)) {
        return "--format " + format + " is not matroska, y4m or raw";
    }
    if (m_raw.output.empty()) return format.empty() ? "" : "--format needs an output: give -o";
    std::string reason;
    const auto target = output_target::parse(m_raw.output, format, reason);
    if (!target) return "-o " + m_raw.output + ": " + reason;
    m_options.output = *target;
    return {};
}

// Of the pictures that the page is scaled to.
std::string render_command::take_film() {
    const std::string wrong =
        m_output_options.take(m_options.output, m_options.format, m_options.key);
    if (!wrong.empty()) return wrong;
    if (m_page.has_background() && m_options.format.transparent) {
        return "--background is behind an opaque page: --transparent and --key have none";
    }
    return {};
}

std::string render_command::take_length() {
    const int given =
        !m_raw.frames.empty() + !m_raw.seconds.empty() + m_raw.is_endless + !m_raw.to.empty();
    if (given > 1) return "give only one of --frames, --seconds, --to and --endless";
    const frame_rate& rate = m_options.format.rate;
    if (!m_raw.frames.empty()) return take_frames();
    if (!m_raw.seconds.empty()) return take_seconds();
    if (m_raw.is_endless) {
        m_options.frames_per_page = render_options::k_endless;
    } else {
        const bool is_one = is_single_picture(m_options.output.kind);
        m_options.frames_per_page = is_one ? 1 : rate.frames_in(k_usual_seconds);
    }
    return {};
}

std::string render_command::take_frames() {
    const auto frames = text::whole_between<std::uint64_t>(m_raw.frames, 1, k_max_frames);
    if (!frames)
        return "--frames " + m_raw.frames + " is not a number of frames from 1 to " +
               std::to_string(k_max_frames);
    m_options.frames_per_page = *frames;
    return {};
}

std::string render_command::take_seconds() {
    const auto seconds = text::decimal_between(m_raw.seconds, 0, k_max_render_seconds);
    if (!seconds || *seconds == 0) {
        return "--seconds " + m_raw.seconds + " is not a time above 0, up to 1000000";
    }
    m_options.frames_per_page = m_options.format.rate.frames_in(*seconds);
    return {};
}

// One rounding for both ends, so that what ends at a moment and what begins there meet.
std::string render_command::take_piece() {
    if (m_options.is_fast_forward && m_raw.from.empty()) return "--fast-forward needs --from";
    if (m_raw.from.empty() && m_raw.to.empty()) return {};
    const char* const given = m_raw.from.empty() ? "--to" : "--from";
    if (m_options.clock != page_clock::own) {
        return std::string(given) + " needs a page by its own clock: a file, or --exact";
    }
    if (m_raw.pages.size() > 1) return std::string(given) + " is of one page";
    const frame_rate& rate = m_options.format.rate;
    const auto frame_at = [&](double at) {
        return at * rate.value() < 0.5 ? std::uint64_t(0) : rate.frames_in(at);
    };
    if (!m_raw.from.empty()) {
        const auto from = text::decimal_between(m_raw.from, 0, k_max_render_seconds);
        if (!from) return "--from " + m_raw.from + " is not a time from 0 on";
        m_options.first_frame = frame_at(*from);
    }
    if (m_raw.to.empty()) return {};
    const auto to = text::decimal_between(m_raw.to, 0, k_max_render_seconds);
    if (!to || frame_at(*to) <= m_options.first_frame) {
        return "--to " + m_raw.to + " is not a time behind --from";
    }
    m_options.frames_per_page = frame_at(*to) - m_options.first_frame;
    return {};
}

std::string render_command::take_choices() {
    if (m_options.is_quiet && m_options.verbose) return "--quiet and --verbose exclude each other";
    if (m_raw.pacing != "request" && m_raw.pacing != "timer") {
        return "--pacing " + m_raw.pacing + " is not request or timer";
    }
    m_options.pacing = m_raw.pacing == "timer" ? pump_pacing::timer : pump_pacing::on_request;
    const std::string wrong = take_clock();
    if (!wrong.empty()) return wrong;
    const std::string wrong_piece = take_piece();
    return wrong_piece.empty() ? take_timeout() : wrong_piece;
}

std::string render_command::take_clock() {
    const std::string& asked = m_raw.host_clock;
    if (!asked.empty() && asked != "on" && asked != "off") {
        return "--host-clock " + asked + " is not on or off";
    }
    const bool runs_free = m_raw.is_free_running || asked == "off";
    const bool is_live = m_raw.is_live || runs_free || !asked.empty();
    if (m_raw.is_exact && is_live) {
        const std::string other = m_raw.is_live           ? "--live"
                                  : m_raw.is_free_running ? "--free-run"
                                                          : "--host-clock " + asked;
        return "--exact and " + other + " exclude each other";
    }
    if (m_raw.is_exact && m_raw.is_endless) return "--exact needs an end: --frames or --seconds";
    // Messages of a feed come in the day's time.
    const bool is_for_file = m_options.output.is_file() && !m_raw.is_endless && m_raw.feed.empty();
    const bool is_exact = m_raw.is_exact || (is_for_file && !is_live);
    const page_clock in_the_days_time = runs_free ? page_clock::page : page_clock::host;
    m_options.clock = is_exact ? page_clock::own : in_the_days_time;
    m_options.format.has_sound = !m_options.is_muted && holds_sound(m_options.output.kind);
    if (m_options.output.kind == output_kind::wav && !m_options.format.has_sound) {
        return m_options.output.path + " holds sound alone: --mute leaves nothing";
    }
    return {};
}

std::string render_command::take_page_settings() {
    const std::string wrong = m_page.take(m_options.clock == page_clock::own, m_options.page);
    if (!wrong.empty()) return wrong;
    const bool is_part = m_options.page.is_full || !m_options.page.element.empty();
    const bool is_picture = is_single_picture(m_options.output.kind);
    if (is_part && (!is_picture || m_options.clock != page_clock::own)) {
        return "--full-page and --element are of one picture: -o NAME.png, .jpg or .webp, and not "
               "--live";
    }
    // It is the last of the frames, and its part is the one at that moment.
    if (is_part) m_options.first_frame += std::exchange(m_options.frames_per_page, 1) - 1;
    return {};
}

// A picture of half a pixel more would be one of the browser's own making.
std::string render_command::take_picture_size() {
    frame_format& format = m_options.format;
    m_options.page_width = format.width;
    m_options.page_height = format.height;
    const double scale = m_options.page.scale;
    // 720 times 1.1 is 792.0000000000001.
    constexpr double k_error = 1e-6;
    for (long* side : {&format.width, &format.height}) {
        const double exact = static_cast<double>(*side) * scale;
        const double pixels = std::round(exact);
        if (std::abs(pixels - exact) > k_error || pixels < 1 || pixels > k_max_view_side) {
            return "--size " + m_raw.size + " times --scale is no size of whole pixels up to 16384";
        }
        *side = static_cast<long>(pixels);
    }
    return {};
}

std::string render_command::take_timeout() {
    const auto timeout = text::decimal_between(m_raw.timeout, 0, k_max_timeout_seconds);
    if (!timeout || *timeout == 0) {
        return "--timeout " + m_raw.timeout + " is not a time above 0, up to 3600";
    }
    const auto milliseconds = std::max(std::int64_t(*timeout * 1000), std::int64_t(1));
    m_options.timeout = std::chrono::milliseconds(milliseconds);
    return {};
}

std::string render_command::take_texts() {
    if (!m_raw.css.empty() && !read_text_file(m_raw.css, m_options.css)) {
        return "--css " + m_raw.css + " cannot be read";
    }
    if (!m_raw.script.empty() && !read_text_file(m_raw.script, m_options.script)) {
        return "--script " + m_raw.script + " cannot be read";
    }
    m_options.script_name = m_raw.script;
    m_options.wait_for = m_raw.wait_for;
    return {};
}

std::string render_command::take_feed_options() {
    m_options.feed.timeout = m_options.timeout;
    return take_feed(m_raw.feed, m_raw.on_message, m_options.feed);
}

// A page that is a picture has an ending that an output may have.
std::string render_command::page_that_is_written() const {
    for (const auto& url : m_options.urls) {
        const std::string page = path_of_file_url(url);
        if (page.empty()) continue;
        const std::string key = m_options.key ? m_options.key->path : std::string();
        for (const std::string& output : {m_options.output.path, key}) {
            if (output.empty() || output == "-" || !are_one_file(output, page)) continue;
            return output + " is the page itself, which would be written over";
        }
    }
    return {};
}

std::string render_command::take_addresses() {
    std::string wrong = take_pages(m_raw.pages, m_options.urls);
    if (wrong.empty()) wrong = page_that_is_written();
    if (!wrong.empty()) return wrong;
    const auto& urls = m_options.urls;
    if (!m_options.page.cookies.empty() && std::none_of(urls.begin(), urls.end(), is_of_a_site)) {
        return "--cookie is for the sites of the pages, and none of them is of http or https";
    }
    if (urls.size() < 2) return {};
    if (m_raw.is_endless) return "--endless shows one page: the next one would never come";
    if (!is_single_picture(m_options.output.kind)) return {};
    return m_options.output.path +
           " holds one picture, and there are several pages: give a series, such as page-%02d.png";
}

int render_command::run(const console& out) { return render(m_options, out); }

std::unique_ptr<command> make_render_command() { return std::make_unique<render_command>(); }

}  // namespace pennywort::host
