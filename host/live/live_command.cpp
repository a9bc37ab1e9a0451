// host/live/live_command.cpp - see the header for the contract.
#include "host/live/live_command.h"

#include "core/http/url.h"
#include "core/text/numbers.h"
#include "host/app/option_parser.h"
#include "host/app/option_values.h"

namespace pennywort::host {

namespace {

// An empty address would mean all of the machine's, which the user has to ask for. A text is an
// address of IPv4 if it may end one of IPv6.
bool is_numeric_address(const std::string& text) {
    if (text.find(':') != std::string::npos) return http::is_ipv6_address(text);
    return text.find('.') != std::string::npos && http::is_ipv6_address("::" + text);
}

}  // namespace

const char* live_command::footer() const {
    return R"(Examples:
  pennywort live page.html
  pennywort live first.html https://example.com --port 0
  pennywort live page.html --listen 0.0.0.0
  pennywort live score.html --feed wss://example.com/goals --on-message 'show(JSON.parse(message))'
The first line of the output is the address of the control page. Ctrl-C ends.
A control page that others reach is advertised as _http._tcp where there is DNS-SD.
Exit status: 0 ended by Ctrl-C, 1 failed, 2 wrong arguments.)";
}

void live_command::add_options(option_parser& parser) {
    parser.add_option("pages", m_pages, "URLs or files: the first is shown, the others are queued")
        .required();
    parser.add_option("--port", m_port, "Port of the control page; 0 for one that is free")
        .type_name("N")
        .shows_default();
    parser
        .add_option("--listen", m_options.listen,
                    "Numeric address to listen on; one that others reach needs a token, which "
                    "stands in the printed address")
        .type_name("ADDRESS")
        .shows_default();
    parser.add_option("--size", m_size, "Width and height in pixels, 1 to 16384")
        .type_name("WxH")
        .shows_default();
    parser.add_option("--fps", m_fps, "Frame rate, 1 to 240").type_name("RATE").shows_default();
    parser
        .add_option("--feed", m_feed,
                    "WebSocket whose messages go to the page; one that is lost is opened again")
        .type_name("URL");
    parser
        .add_option(
            "--on-message", m_on_message,
            "JavaScript run for each of them, which is the text 'message'; @FILE for a file")
        .type_name("JS");
    parser.add_flag("--transparent", m_options.is_transparent,
                    "Keep the page's alpha, shown over black");
    parser.add_flag("--mute", m_options.is_muted, "Pages are silent");
    parser.add_flag(
        "--no-advertise", [this] { m_options.is_advertised = false; },
        "Do not tell the local network of the control page");
    parser.add_flag("--gpu", m_options.uses_gpu, "Use the machine's display and GPU");
    parser.add_flag("--verbose", m_options.is_verbose,
                    "Also print traces, and what the browser says");
    parser.refuse_empty_values();
}

std::string live_command::take_arguments() {
    if (std::string wrong = take_picture_format(); !wrong.empty()) return wrong;
    if (std::string wrong = take_pages(m_pages, m_options.urls); !wrong.empty()) return wrong;
    if (std::string wrong = take_feed(m_feed, m_on_message, m_options.feed); !wrong.empty()) {
        return wrong;
    }
    return take_address();
}

std::string live_command::take_picture_format() {
    frame_format format;
    if (std::string wrong = take_size(m_size, format); !wrong.empty()) return wrong;
    if (std::string wrong = take_rate(m_fps, format); !wrong.empty()) return wrong;
    m_options.width = format.width;
    m_options.height = format.height;
    m_options.frames_per_second = format.rate.value();
    return {};
}

std::string live_command::take_address() {
    const auto port = text::whole_between<std::int32_t>(m_port, 0, 65535);
    if (!port) return "--port " + m_port + " is not a port from 0 to 65535";
    m_options.port = *port;
    if (is_numeric_address(m_options.listen)) return {};
    return "--listen " + m_options.listen + " is not a numeric address, such as 127.0.0.1";
}

int live_command::run(const console& out) { return live(m_options, out); }

std::unique_ptr<command> make_live_command() { return std::make_unique<live_command>(); }

}  // namespace pennywort::host
