// host/ws/ws_command.cpp - see the header for the contract.
#include "host/ws/ws_command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string_view>
#include <thread>
#include <utility>

#include "core/limits.h"
#include "core/text/numbers.h"
#include "host/app/exit_status.h"
#include "host/app/option_parser.h"
#include "host/system/interrupt.h"

namespace pennywort::host {

namespace {

constexpr std::chrono::milliseconds k_round{50};

std::string take_seconds(const char* option, const std::string& text, bool may_be_0,
                         std::chrono::milliseconds& into) {
    const auto seconds = text::decimal_between(text, 0, k_max_timeout_seconds);
    if (!seconds || (*seconds == 0 && !may_be_0)) {
        return std::string(option) + " " + text + " is not a time";
    }
    into = std::chrono::milliseconds(std::llround(std::ceil(*seconds * 1000)));
    return {};
}

// The lines of standard input, which are taken as they come.
class input_lines {
public:
    // False at the end of the input. A line that is longer than a message may be is not kept whole.
    bool read(std::string& line, bool& is_whole) {
        line.clear();
        is_whole = true;
        while (!m_rest.empty() || receive()) {
            const std::size_t end = m_rest.find('\n');
            take(m_rest.substr(0, end), line, is_whole);
            m_rest.remove_prefix(std::min(m_rest.size(), end) + (end == m_rest.npos ? 0 : 1));
            if (end != m_rest.npos) return true;
        }
        return !line.empty();
    }

private:
    static void take(std::string_view piece, std::string& line, bool& is_whole) {
        is_whole = is_whole && piece.size() <= k_max_websocket_message_bytes - line.size();
        if (is_whole) line += piece;
    }
    bool receive() {
        std::streambuf& input = *std::cin.rdbuf();
        if (input.sgetc() == EOF) return false;
        const auto there = std::max<std::streamsize>(1, input.in_avail());
        m_received.resize(static_cast<std::size_t>(there));
        m_received.resize(static_cast<std::size_t>(input.sgetn(m_received.data(), there)));
        m_rest = m_received;
        return !m_rest.empty();
    }

    std::string m_received;
    std::string_view m_rest;
};

void send_line(ws_session& session, std::string line, bool is_whole) {
    if (!is_whole) return session.refuse_line("it is longer than 256 MiB");
    if (line.ends_with('\r')) line.pop_back();
    session.send(line);
}

// The thread may wait for input when the program ends, so that it owns nothing but the session.
void read_input(const std::shared_ptr<ws_session>& session) {
    // With a buffer of its own, the stream reads ten times as fast.
    std::ios::sync_with_stdio(false);
    std::thread([session] {
        input_lines input;
        bool is_whole = true;
        for (std::string line; input.read(line, is_whole);) {
            send_line(*session, std::move(line), is_whole);
        }
        session->input_ended();
    }).detach();
}

}  // namespace

const char* ws_command::footer() const {
    return R"(Lines from standard input go out as messages, messages come to standard output, a line each.
Examples:
  pennywort ws wss://example.com/feed
  echo '{"subscribe":"scores"}' | pennywort ws wss://example.com/feed --linger 60
Exit status: 0 closed, 1 no connection, one that was lost or that the server ended for a fault, or
a line that was not sent, 2 wrong arguments, 129, 130 or 143 interrupted.)";
}

void ws_command::add_options(option_parser& parser) {
    parser.add_option("url", m_options.url, "ws or wss URL").required();
    parser.add_option("--ping", m_ping, "Send a ping every so many seconds").type_name("S");
    parser.add_option("--linger", m_linger, "How long to go on after the end of the input")
        .type_name("S")
        .shows_default();
    parser.add_option("--timeout", m_timeout, "Longest wait for the connection, in seconds")
        .type_name("S")
        .shows_default();
    parser
        .add_option("--stall", m_stall, "Longest wait for a server that takes nothing, in seconds")
        .type_name("S")
        .shows_default();
    parser.add_flag("--managed", m_is_managed, "The asynchronous transport; so it is without this");
    parser.add_flag("--system", m_is_system, "The system's own transport");
    parser.add_flag("--verbose", m_is_verbose, "Also print traces");
}

std::string ws_command::take_arguments() {
    std::string wrong = fault_of_feed_url(m_options.url);
    if (!wrong.empty()) return wrong;
    if (m_is_managed && m_is_system) return "give only one of --managed and --system";
    if (m_is_system && !m_ping.empty()) return "--ping needs --managed: the system sends no pings";
    m_options.transport = m_is_system ? ws_transport::system : ws_transport::managed;
    std::chrono::milliseconds timeout{0};
    wrong = take_seconds("--timeout", m_timeout, false, timeout);
    if (wrong.empty()) wrong = take_seconds("--linger", m_linger, true, m_options.linger);
    if (wrong.empty()) wrong = take_seconds("--stall", m_stall, false, m_options.pace.pause);
    if (wrong.empty() && !m_ping.empty()) {
        wrong = take_seconds("--ping", m_ping, false, m_options.ping);
    }
    m_options.timeout = double(timeout.count()) / 1000;
    return wrong;
}

int ws_command::run(const console& out) {
    if (!out.has_output()) {
        std::fprintf(out.errors(), "pennywort: standard output is closed\n");
        return k_exit_failed;
    }
    m_options.is_on_terminal = out.is_on_terminal();
    auto feed = make_feed(m_options.transport);
    if (feed == nullptr) {
        std::fprintf(out.errors(), "pennywort: out of memory\n");
        return k_exit_failed;
    }
    const auto session =
        std::make_shared<ws_session>(m_options, std::move(feed), out.output(), out.errors());
    session->open();
    read_input(session);
    return talk(*session);
}

int ws_command::talk(ws_session& session) {
    const interrupt_watch interrupt;
    auto last_ping = std::chrono::steady_clock::now();
    while (interrupt.status() == 0 && !session.wait(k_round)) {
        const auto now = std::chrono::steady_clock::now();
        if (m_options.ping.count() == 0 || now - last_ping < m_options.ping) continue;
        last_ping = now;
        session.ping();
    }
    session.close();
    return interrupt.status() != 0 ? interrupt.status() : session.status();
}

std::unique_ptr<command> make_ws_command() { return std::make_unique<ws_command>(); }

}  // namespace pennywort::host
