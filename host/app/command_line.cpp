// host/app/command_line.cpp - see the header for the contract.
#include "host/app/command_line.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

#include "host/app/page_address.h"

namespace pennywort::host {

namespace {

constexpr long k_largest_side = 16384;
constexpr std::uint64_t k_most_frames = 1'000'000'000;
constexpr double k_longest_seconds = 1'000'000;
constexpr double k_usual_seconds = 10;
constexpr double k_longest_timeout = 3600;
constexpr std::size_t k_largest_text_file = std::size_t(16) << 20;

constexpr const char* k_version = "pennywort " PENNYWORT_VERSION;

constexpr const char* k_footer = R"(Examples:
  pennywort render page.html -o page.png
  pennywort render lower-third.html --transparent --seconds 8 -o lower-third.mov
  pennywort render https://example.com --size 1920x1080 --fps 59.94 -o - | ffplay -
  pennywort render page.html --seconds 5 --json
Exit status: 0 done, 1 failed, 2 wrong arguments, 130 or 143 interrupted (the file is complete).)";

constexpr const char* k_live_footer = R"(Examples:
  pennywort live page.html
  pennywort live first.html https://example.com --port 0
  pennywort live page.html --listen 0.0.0.0
The first line of the output is the address of the control page. Ctrl-C ends.
Exit status: 0 ended by Ctrl-C, 1 failed, 2 wrong arguments.)";

// The arguments as they were written; what they mean comes after.
struct raw_arguments {
    std::vector<std::string> pages;
    std::string size = "1280x720";
    std::string fps = "50";
    std::string frames;
    std::string seconds;
    std::string timeout = "30";
    std::string css;
    std::string script;
    std::string wait_for;
    std::string output;
    std::string format;
    std::string pacing = "request";
    std::string host_clock = "on";
    std::string port = "8080";
    std::string listen = "127.0.0.1";
    bool endless = false;
    bool transparent = false;
    bool free_run = false;
    bool gpu = false;
    bool json = false;
    bool verbose = false;
};

void add_page_options(CLI::App& render, raw_arguments& raw) {
    render.add_option("pages", raw.pages, "URLs or files, shown one after another")->required();
    render.add_option("--size", raw.size, "Width and height in pixels, 1 to 16384")
        ->type_name("WxH")
        ->capture_default_str();
    render.add_option("--fps", raw.fps, "Frame rate, 1 to 240: 50, 59.94, 30000/1001")
        ->type_name("RATE")
        ->capture_default_str();
    render.add_option("--frames", raw.frames, "Output frames of each page")->type_name("N");
    render.add_option("--seconds", raw.seconds, "The same as a time; 10 without either")
        ->type_name("S");
    render.add_flag("--endless", raw.endless, "Go on until Ctrl-C, or until the reader closes");
    render.add_flag("--transparent", raw.transparent, "Keep the page's alpha");
    render.add_option("--css", raw.css, "Style sheet put into each page")->type_name("FILE");
    render.add_option("--script", raw.script, "JavaScript run in each page once it has loaded")
        ->type_name("FILE");
    render
        .add_option("--wait-for", raw.wait_for,
                    "Expression that has to be true before frames count")
        ->type_name("JS");
    render.add_option("--timeout", raw.timeout, "Longest wait for a page, in seconds")
        ->type_name("S")
        ->capture_default_str();
}

void add_output_options(CLI::App& render, raw_arguments& raw) {
    render
        .add_option("-o,--output", raw.output,
                    "out.png (the last frame), f-%05d.png, out.y4m, out.raw, out.mkv, out.mov, or "
                    "- for a pipe; without it only measure")
        ->type_name("NAME");
    render.add_option("--format", raw.format, "y4m or raw (BGRA), where the name does not say it")
        ->type_name("FORMAT");
    render.add_option("--pacing", raw.pacing, "What drives the browser: request or timer")
        ->type_name("HOW")
        ->capture_default_str();
    render
        .add_option("--host-clock", raw.host_clock,
                    "on: the page's clock ticks once per frame; off: it runs free")
        ->type_name("on|off")
        ->capture_default_str();
    render.add_flag("--free-run", raw.free_run, "The same as --host-clock off");
    render.add_flag("--gpu", raw.gpu, "Use the machine's display and GPU");
    render.add_flag("--json", raw.json, "Print one last line of what happened");
    render.add_flag("--verbose", raw.verbose, "Also print traces, and what pages and browser say");
}

void add_live_options(CLI::App& live, raw_arguments& raw) {
    live.add_option("pages", raw.pages, "URLs or files: the first is shown, the others are queued")
        ->required();
    live.add_option("--port", raw.port, "Port of the control page; 0 for one that is free")
        ->type_name("N")
        ->capture_default_str();
    live.add_option("--listen", raw.listen,
                    "Numeric address to listen on; one that others reach needs a token, which "
                    "stands in the printed address")
        ->type_name("ADDRESS")
        ->capture_default_str();
    live.add_option("--size", raw.size, "Width and height in pixels, 1 to 16384")
        ->type_name("WxH")
        ->capture_default_str();
    live.add_option("--fps", raw.fps, "Frame rate, 1 to 240")
        ->type_name("RATE")
        ->capture_default_str();
    live.add_flag("--transparent", raw.transparent, "Keep the page's alpha, shown over black");
    live.add_flag("--gpu", raw.gpu, "Use the machine's display and GPU");
    live.add_flag("--verbose", raw.verbose, "Also print traces, and what the browser says");
}

command_line refusal(std::string text) {
    command_line result;
    // One line, whatever a parser or the user's own text put into it.
    std::replace(text.begin(), text.end(), '\n', ' ');
    result.text = std::move(text);
    return result;
}

command_line saying(std::string text) {
    command_line result;
    result.what = command_line::verdict::say;
    result.text = std::move(text);
    return result;
}

template <class T>
std::optional<T> number(std::string_view text, T lowest, T highest) {
    T value{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && stop == text.data() + text.size();
    // Written so that a NaN, which compares false with everything, is refused.
    if (!whole || !(value >= lowest && value <= highest)) return {};
    return value;
}

bool take_size(const std::string& text, frame_format& format) {
    const auto x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    const auto width = number<long>(text.substr(0, x), 1, k_largest_side);
    const auto height = number<long>(text.substr(x + 1), 1, k_largest_side);
    if (!width || !height) return false;
    format.width = *width;
    format.height = *height;
    return true;
}

bool read_text_file(const std::string& path, std::string& text) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad() && text.size() <= k_largest_text_file;
}

// Each step answers an empty text, or what is wrong.
std::string take_picture_format(const raw_arguments& raw, render_options& options) {
    options.format.transparent = raw.transparent;
    if (!take_size(raw.size, options.format)) {
        return "--size " + raw.size + " is not a size: give WxH, each from 1 to 16384";
    }
    const auto rate = frame_rate::parse(raw.fps);
    if (!rate) return "--fps " + raw.fps + " is not a frame rate from 1 to 240";
    options.format.rate = *rate;
    return {};
}

std::string take_output(const raw_arguments& raw, render_options& options) {
    if (!raw.format.empty() && raw.format != "y4m" && raw.format != "raw") {
        return "--format " + raw.format + " is not y4m or raw";
    }
    if (raw.output.empty()) return raw.format.empty() ? "" : "--format needs an output: give -o";
    std::string reason;
    const auto target = output_target::parse(raw.output, raw.format, reason);
    if (!target) return "-o " + raw.output + ": " + reason;
    options.output = *target;
    return {};
}

std::string take_length(const raw_arguments& raw, render_options& options) {
    const int given = !raw.frames.empty() + !raw.seconds.empty() + raw.endless;
    if (given > 1) return "give only one of --frames, --seconds and --endless";
    if (!raw.frames.empty()) {
        const auto frames = number<std::uint64_t>(raw.frames, 1, k_most_frames);
        if (!frames) return "--frames " + raw.frames + " is not a number of frames from 1 on";
        options.frames_per_page = *frames;
    } else if (!raw.seconds.empty()) {
        const auto seconds = number<double>(raw.seconds, 0, k_longest_seconds);
        if (!seconds || *seconds == 0) return "--seconds " + raw.seconds + " is not a time above 0";
        options.frames_per_page = options.format.rate.frames_in(*seconds);
    } else if (raw.endless) {
        options.frames_per_page = render_options::k_endless;
    } else {
        const bool one = options.output.kind == output_kind::png;
        options.frames_per_page = one ? 1 : options.format.rate.frames_in(k_usual_seconds);
    }
    return {};
}

std::string take_choices(const raw_arguments& raw, render_options& options) {
    if (raw.pacing != "request" && raw.pacing != "timer") {
        return "--pacing " + raw.pacing + " is not request or timer";
    }
    if (raw.host_clock != "on" && raw.host_clock != "off") {
        return "--host-clock " + raw.host_clock + " is not on or off";
    }
    const auto timeout = number<double>(raw.timeout, 0, k_longest_timeout);
    if (!timeout || *timeout == 0) return "--timeout " + raw.timeout + " is not a time above 0";
    options.timeout =
        std::chrono::milliseconds(std::max(std::int64_t(*timeout * 1000), std::int64_t(1)));
    options.pacing = raw.pacing == "timer" ? pump_pacing::timer : pump_pacing::on_request;
    options.clock = raw.free_run || raw.host_clock == "off" ? page_clock::page : page_clock::host;
    options.gpu = raw.gpu;
    options.json = raw.json;
    options.verbose = raw.verbose;
    return {};
}

std::string take_texts(const raw_arguments& raw, render_options& options) {
    if (!raw.css.empty() && !read_text_file(raw.css, options.css)) {
        return "--css " + raw.css + " cannot be read";
    }
    if (!raw.script.empty() && !read_text_file(raw.script, options.script)) {
        return "--script " + raw.script + " cannot be read";
    }
    options.script_name = raw.script;
    options.wait_for = raw.wait_for;
    return {};
}

std::string take_pages(const raw_arguments& raw, render_options& options) {
    for (const auto& page : raw.pages) {
        std::string reason;
        auto url = page_address(page, reason);
        if (!url) return reason;
        options.urls.push_back(std::move(*url));
    }
    if (options.urls.size() < 2) return {};
    if (raw.endless) return "--endless shows one page: the next one would never come";
    if (options.output.kind == output_kind::png) {
        return options.output.path +
               " holds one picture, and there are several pages: give a "
               "series, such as page-%02d.png";
    }
    return {};
}

// An empty address would stand for all of the machine's, which has to be asked for.
bool is_numeric_address(const std::string& text) {
    const bool has_separator = text.find_first_of(".:") != std::string::npos;
    return has_separator && text.find_first_not_of("0123456789abcdefABCDEF.:") == std::string::npos;
}

command_line interpret_live(const raw_arguments& raw) {
    command_line result;
    for (const auto take : {take_picture_format, take_pages}) {
        const std::string wrong = take(raw, result.options);
        if (!wrong.empty()) return refusal(wrong);
    }
    const auto port = number<std::int32_t>(raw.port, 0, 65535);
    if (!port) return refusal("--port " + raw.port + " is not a port from 0 to 65535");
    if (!is_numeric_address(raw.listen)) {
        return refusal("--listen " + raw.listen + " is not a numeric address, such as 127.0.0.1");
    }
    const auto& format = result.options.format;
    result.live = {result.options.urls, format.width,    format.height, format.rate.value(), *port,
                   raw.listen,          raw.transparent, raw.gpu,       raw.verbose};
    result.what = command_line::verdict::live;
    return result;
}

command_line interpret(const raw_arguments& raw) {
    command_line result;
    for (const auto take :
         {take_picture_format, take_output, take_length, take_choices, take_texts, take_pages}) {
        const std::string wrong = take(raw, result.options);
        if (!wrong.empty()) return refusal(wrong);
    }
    result.what = command_line::verdict::render;
    return result;
}

}  // namespace

command_line parse_command_line(const std::vector<std::string>& arguments) {
    const bool has_command = !arguments.empty() && arguments[0].substr(0, 1) != "-";
    if (has_command && arguments[0] != "render" && arguments[0] != "live") {
        return refusal("there is no command " + arguments[0] + ", only render and live");
    }
    raw_arguments raw;
    CLI::App program("Renders web pages to frames and files.", "pennywort");
    // A word like /page.html is a file on every system, and never an option.
    program.allow_windows_style_options(false);
    program.set_version_flag("--version", k_version);
    program.require_subcommand(1);
    program.footer("See also: pennywort render --help, pennywort live --help");
    CLI::App& render = *program.add_subcommand("render", "Show web pages and write their frames");
    add_page_options(render, raw);
    add_output_options(render, raw);
    render.footer(k_footer);
    CLI::App& live = *program.add_subcommand("live", "Show web pages, and a page to control them");
    add_live_options(live, raw);
    live.footer(k_live_footer);
    std::vector<std::string> backwards(arguments.rbegin(), arguments.rend());
    try {
        program.parse(std::move(backwards));
    } catch (const CLI::CallForHelp&) {
        if (live.parsed()) return saying(live.help("pennywort"));
        return saying(render.parsed() ? render.help("pennywort") : program.help());
    } catch (const CLI::CallForVersion&) {
        return saying(std::string(k_version) + "\n");
    } catch (const CLI::ParseError& wrong) {
        return refusal(wrong.what());
    }
    return live.parsed() ? interpret_live(raw) : interpret(raw);
}

}  // namespace pennywort::host
