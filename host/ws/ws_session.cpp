// host/ws/ws_session.cpp - see the header for the contract.
#include "host/ws/ws_session.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "core/text/utf8.h"
#include "host/app/terminal_text.h"
#include "host/system/output_reader.h"

namespace pennywort::host {

namespace {

// How often to look whether the server has taken more.
constexpr std::chrono::milliseconds k_look_again{5};

constexpr char k_reader_left[] = "the reader of the output has closed it";

// What no text of a WebSocket is.
std::string fault_of_line(const std::string& line) {
    if (line.find('\0') != line.npos) return "it holds a NUL";
    return text::is_utf8(line) ? "" : "it is no UTF-8";
}

}  // namespace

void ws_session::open() {
    m_feed->SetOpenedHandler([this](const std::shared_ptr<cWebSocket>&) { opened(); });
    m_feed->SetMessageHandler([this](const char* text) { received(text); });
    m_feed->SetFaultHandler([this](const char* why) {
        const std::lock_guard lock(m_mutex);
        m_why = why;
    });
    m_feed->SetErrorHandler([this](cWebSocket::Error error) { failed(error); });
    m_feed->SetClosedHandler([this](std::optional<cWebSocket::Error> error, bool was_clean) {
        closed(error, was_clean);
    });
    m_feed->SetGoodbyeHandler([this](std::int32_t code, const char* reason) {
        // The system transport's receive thread may be faster than its opening.
        opened();
        ended(is_failure(code) ? state::failed : state::closed, words_of_goodbye(code, reason));
    });
    m_feed->Open(m_options.url.c_str(), m_options.timeout);
}

void ws_session::opened() {
    const std::lock_guard lock(m_mutex);
    if (m_state != state::connecting) return;
    m_state = state::open;
    tell("opened");
    m_changed.notify_all();
}

// A reader that has closed our output wants no more of it; any other end of it is a failure.
void ws_session::received(const char* text) {
    const std::error_code why = written(text);
    if (!why) return;
    if (why == std::errc::broken_pipe) return ended(state::closed, k_reader_left);
    ended(state::failed, "cannot write standard output: " + why.message());
}

std::error_code ws_session::written(const char* text) {
    const std::lock_guard lock(m_outputs);
    if (!m_has_outputs) return {};
    m_has_written = true;
    errno = 0;
    const std::string line = m_options.is_on_terminal ? with_codes(text) : std::string(text);
    const bool is_written = std::fputs(line.c_str(), m_output) >= 0 &&
                            std::fputc('\n', m_output) != EOF && std::fflush(m_output) == 0;
    return is_written ? std::error_code() : std::error_code(errno, std::generic_category());
}

void ws_session::ended(state how, const std::string& words) {
    const std::lock_guard lock(m_mutex);
    if (is_over()) return;
    m_state = how;
    tell(words);
    m_changed.notify_all();
}

bool ws_session::is_line_given_up() const {
    const std::lock_guard lock(m_mutex);
    return m_is_line_given_up;
}

std::string ws_session::take_why() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_why, {});
}

// That a line that was given up is not sent has been told.
void ws_session::failed(cWebSocket::Error error) {
    if (error == cWebSocket::Error::SendFailed && is_line_given_up()) return;
    ended(state::failed, m_options.url + ": " + words_of(error, take_why()));
}

void ws_session::closed(std::optional<cWebSocket::Error> error, bool was_clean) {
    const std::string words = words_of_close(error, was_clean, take_why());
    if (was_clean) return ended(state::closed, words);
    ended(state::failed, m_options.url + ": " + words);
}

void ws_session::tell(const std::string& line) {
    const std::lock_guard lock(m_outputs);
    if (!m_has_outputs) return;
    std::fprintf(m_errors, "pennywort: %s\n", line.c_str());
    std::fflush(m_errors);
}

// What a server is slow to take waits in the input, not in memory.
bool ws_session::wait_until_few_wait(std::size_t bytes) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_state != state::connecting; });
    taking_watch taking(m_options.pace.pause);
    while (!is_over() && !m_has_input_ended) {
        const std::size_t waiting = m_feed->WaitingBytes();
        if (waiting <= bytes) return true;
        if (taking.has_stopped(waiting, std::chrono::steady_clock::now())) {
            give_up_server(waiting);
        } else {
            m_changed.wait_for(lock, k_look_again);
        }
    }
    return false;
}

void ws_session::send(const std::string& line) {
    if (!wait_until_few_wait(m_options.pace.may_wait_before(line.size()))) return;
    const std::string wrong = fault_of_line(line);
    if (!wrong.empty()) return refuse_line(wrong.c_str());
    if (m_options.transport == ws_transport::system) return send_watched(line);
    m_feed->Send(line.c_str());
}

// The system transport returns when the line is out, and the thread that waits for the end sees to
// it that this comes about.
void ws_session::send_watched(const std::string& line) {
    {
        const std::lock_guard lock(m_mutex);
        m_line = {line.size(), std::chrono::steady_clock::now()};
    }
    m_feed->Send(line.c_str());
    const std::lock_guard lock(m_mutex);
    m_line.reset();
}

void ws_session::watch_line() {
    if (!m_line || m_is_line_given_up) return;
    const auto taken = std::chrono::steady_clock::now() - m_line->since;
    if (taken < m_options.pace.longest_send(m_line->bytes)) return;
    m_is_line_given_up = true;
    give_up_server(m_line->bytes);
}

void ws_session::give_up_server(std::size_t waiting) {
    m_has_unsent = true;
    tell("the server takes nothing: " + std::to_string(waiting) + " bytes are not sent");
    end_input();
}

void ws_session::refuse_line(const char* why) {
    const std::lock_guard lock(m_mutex);
    m_has_unsent = true;
    tell("a line of the input is not sent: " + std::string(why));
}

// The time to go on begins when all of it is out: the goodbye waits for a few seconds only.
void ws_session::input_ended() {
    wait_until_few_wait(0);
    const std::lock_guard lock(m_mutex);
    if (!m_has_input_ended) end_input();
}

void ws_session::end_input() {
    m_has_input_ended = true;
    m_end_of_input = std::chrono::steady_clock::now();
    m_changed.notify_all();
}

// One that leaves behind a message, while no other one comes. Who has read none may not want any,
// and has lines to send. Whoever writes just now learns it there.
bool ws_session::has_lost_reader() {
    const std::unique_lock lock(m_outputs, std::try_to_lock);
    return lock && m_has_written && !has_reader(m_output);
}

bool ws_session::wait(std::chrono::milliseconds time) {
    if (has_lost_reader()) ended(state::closed, k_reader_left);
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, time, [this] { return is_over(); });
    if (is_over()) return true;
    watch_line();
    return m_has_input_ended && m_state == state::open &&
           std::chrono::steady_clock::now() - m_end_of_input >= m_options.linger;
}

// The managed transport tells its close; what comes of it by then is written, and nothing behind
// it: the outputs are the program's, which is about to end.
void ws_session::close() {
    m_feed->Close();
    if (m_options.transport == ws_transport::system) {
        ended(state::closed, "closed");
    } else {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(10), [this] { return is_over(); });
    }
    const std::lock_guard lock(m_outputs);
    m_has_outputs = false;
}

int ws_session::status() const {
    const std::lock_guard lock(m_mutex);
    const bool has_stood = m_state != state::failed && m_state != state::connecting;
    return has_stood && !m_has_unsent ? 0 : 1;
}

}  // namespace pennywort::host
