// host/ws/ws_session.h - what "pennywort ws" does between its start and its end: lines go out as
// messages, messages come in as lines.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "core/run/clock.h"
#include "host/ws/sending_pace.h"
#include "host/ws/ws_feed.h"
#include "websocket.h"

namespace pennywort::host {

struct ws_options {
    std::string url;
    ws_transport transport = ws_transport::managed;
    double timeout = 30;
    std::chrono::milliseconds ping{0};    // 0: none
    std::chrono::milliseconds linger{0};  // how long to go on when the input has ended
    // Messages come out as a terminal can show them; otherwise as they are.
    bool is_on_terminal = false;
    sending_pace pace;
};

// Shared with the thread that reads the input, which may wait there for ever.
class ws_session : public std::enable_shared_from_this<ws_session> {
public:
    // `feed` must not be null; make_feed makes one.
    ws_session(const ws_options& options, std::shared_ptr<cWebSocket> feed, std::FILE* output,
               std::FILE* errors)
        : m_options(options), m_output(output), m_errors(errors), m_feed(std::move(feed)) {}

    void open();
    // From the thread that reads: one line of the input, one that cannot be sent, and the end. They
    // wait while the server does not take what came before; where it takes nothing at all, that is
    // told, and the input ends there.
    void send(const std::string& line);
    void refuse_line(const char* why);
    void input_ended();
    // Waits a little; true when the session is over.
    bool wait(std::chrono::milliseconds time);
    void ping() { m_feed->SendPing(); }
    void close();
    // 0 when the connection stood and was not lost, and every line could be sent.
    int status() const;

private:
    using time_point = std::chrono::steady_clock::time_point;
    enum class state { connecting, open, closed, failed };
    // One that is being sent by a transport that returns when it is out.
    struct watched_line {
        std::size_t bytes;
        time_point since;
    };

    void opened();
    void received(const char* text);
    void ended(state how, const std::string& words);
    // What the socket has said of its fault, once.
    std::string take_why();
    void failed(cWebSocket::Error error);
    void closed(std::optional<cWebSocket::Error> error, bool was_clean);
    // False when nothing can be sent any more.
    bool wait_until_few_wait(std::size_t bytes);
    void send_watched(const std::string& line);
    bool is_line_given_up() const;
    // The next three need the lock.
    void watch_line();
    void give_up_server(std::size_t waiting);
    void end_input();
    std::error_code written(const char* text);
    void tell(const std::string& line);
    bool has_lost_reader();
    bool is_over() const { return m_state == state::closed || m_state == state::failed; }

    const ws_options m_options;
    std::FILE* const m_output;
    std::FILE* const m_errors;
    const std::shared_ptr<cWebSocket> m_feed;
    std::mutex m_outputs;  // is taken last
    bool m_has_outputs = true;
    bool m_has_written = false;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    state m_state = state::connecting;
    bool m_has_input_ended = false;
    bool m_has_unsent = false;
    std::optional<watched_line> m_line;
    bool m_is_line_given_up = false;
    std::string m_why;
    time_point m_end_of_input;
};

}  // namespace pennywort::host
