// host/fetch/fetch.cpp - see the header for the contract.
#include "host/fetch/fetch.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "core/limits.h"
#include "host/app/exit_status.h"
#include "host/app/terminal_text.h"
#include "host/fetch/fetch_progress.h"
#include "host/output/byte_sink.h"
#include "host/output/output_file.h"
#include "host/system/interrupt.h"
#include "httpclient.h"
#include "logger.h"

namespace pennywort::host {

namespace {

using clock = std::chrono::steady_clock;

enum fetch_exit : int {
    k_exit_no_connection = 3,
    k_exit_too_late = 4,
    k_exit_broken = 5,
    k_exit_refused = 6,
};

// A response outside 200 to 299 has this minus its status.
constexpr long k_first_status_code = -29000;

int exit_status_of(long result, std::int32_t error) {
    switch (result) {
        case cHttpSession::k_timed_out:
            return k_exit_too_late;
        case cHttpSession::k_connect_failed:
            return k_exit_usage;
        case cHttpSession::k_send_failed:
            if (error == cHttpSession::k_error_bad_url) return k_exit_usage;
            return error == cHttpSession::k_error_timed_out ? k_exit_too_late
                                                            : k_exit_no_connection;
        case cHttpSession::k_receive_failed:
            return is_no_connection(error) ? k_exit_no_connection : k_exit_broken;
        case cHttpSession::k_write_failed:
        case cHttpSession::k_incomplete:
            return k_exit_broken;
        default:
            return result <= k_first_status_code ? int{k_exit_refused} : int{k_exit_failed};
    }
}

// Ends what the request waits for, when the user wants the program to end.
class stopper {
public:
    stopper(cHttpSession& session, const interrupt_watch& watch)
        : m_thread([this, &session, &watch] { look(session, watch); }) {}
    ~stopper() {
        {
            const std::lock_guard lock(m_mutex);
            m_has_ended = true;
        }
        m_ended.notify_all();
        m_thread.join();
    }
    stopper(const stopper&) = delete;
    stopper& operator=(const stopper&) = delete;

private:
    void look(cHttpSession& session, const interrupt_watch& watch) {
        std::unique_lock lock(m_mutex);
        while (!m_has_ended && watch.status() == 0) m_ended.wait_for(lock, k_look_every);
        if (!m_has_ended) session.Request_Stop();
    }

    static constexpr std::chrono::milliseconds k_look_every{50};

    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_has_ended = false;
    std::thread m_thread;  // last: it uses the others
};

class download {
public:
    download(const fetch_options& options, const console& out) : m_options(options), m_out(out) {}

    int run();

private:
    outcome open_output();
    void set_up();
    long request();
    bool take(zBuffer& chunk);
    void show_progress();
    void clear_progress();
    void log_request();
    void log_response();
    std::string words_for(long result) const;
    int conclude(long result);
    int tell(int status, const std::string& text);

    const fetch_options& m_options;
    const console& m_out;
    const std::shared_ptr<cHttpSession> m_session = cHttpSession::Factory();
    interrupt_watch m_watch;
    wire_log m_log;
    byte_sink m_to;
    outcome m_written = outcome::fine();
    clock::time_point m_start = clock::now();
    clock::time_point m_next_line = m_start;
    bool m_is_line_shown = false;
    bool m_has_head = false;  // of the response
};

int download::tell(int status, const std::string& text) {
    clear_progress();
    std::fprintf(m_out.errors(), "pennywort: %s: %s\n", in_one_line(m_options.http.url).c_str(),
                 in_one_line(text).c_str());
    return status;
}

// Once a response is there, and not before: what fails to connect leaves the user's file alone.
outcome download::open_output() {
    if (m_options.output.empty()) {
        m_to.use(m_out.output(), "standard output");
        return outcome::fine();
    }
    return m_to.open(m_options.output);
}

void download::log_request() {
    if (m_log.logger() == nullptr) return;
    std::string text = m_options.verb_name + " " + m_options.http.url + "\n";
    for (const auto& [name, value] : m_options.headers) {
        text.append(name).append(": ").append(value).append("\n");
    }
    text += "\n" + m_options.body;
    m_log.logger()->Sent(text.data(),
                         static_cast<std::int32_t>(std::min<std::size_t>(text.size(), INT32_MAX)));
}

void download::log_response() {
    if (m_log.logger() == nullptr) return;
    zRecord headers;
    m_session->Response_Headers(headers);
    std::uint32_t status = 0;
    m_session->Response_StatusCode(&status);
    std::string text = "status " + std::to_string(status) + "\n";
    for (std::uint32_t i = 0; i < headers.VariableCount(); ++i) {
        const char* const name = headers.VariableName(i);
        text += std::string(name) + ": " + headers.AsString(name, "") + "\n";
    }
    m_log.logger()->Received(text.data(), static_cast<std::int32_t>(text.size()));
}

void download::set_up() {
    cHttpSessionSettings settings;
    settings.tlsByScheme = true;
    settings.stopFromAnyThread = true;
    settings.tellBrokenBody = true;
    settings.caFile = m_options.http.ca_file;
    m_session->SetSettings(settings);
    m_session->Configure(m_options.verb, m_options.http.url.c_str(), m_options.http.timeout);
}

long download::request() {
    set_up();
    zRecord headers;
    for (const auto& [name, value] : m_options.headers) headers.SetString(name.c_str(), value);
    log_request();
    const stopper stops(*m_session, m_watch);
    const long result = m_session->Request_BeginWithCallback(
        [this](zBuffer& chunk) { return take(chunk); }, &headers,
        m_options.has_body ? m_options.body.data() : nullptr,
        static_cast<std::uint32_t>(m_options.body.size()));
    if (result != 0) return result;
    m_has_head = true;
    log_response();
    m_written = open_output();
    if (m_written.ok()) m_session->Request_BlockForResponse();
    return m_session->Response_StatusCode(nullptr);
}

bool download::take(zBuffer& chunk) {
    if (cLogger* const log = m_log.logger(); log != nullptr) {
        log->Received(chunk.Data(), static_cast<std::int32_t>(chunk.Length()));
    }
    m_written = m_to.write(chunk.Data(), chunk.Length());
    show_progress();
    return m_written.ok() && m_watch.status() == 0;
}

void download::show_progress() {
    const int columns = m_out.terminal_columns();
    const auto now = clock::now();
    if (columns == 0 || m_options.output.empty() || now < m_next_line) return;
    m_next_line = now + std::chrono::milliseconds(100);
    std::uint64_t total = 0;
    m_session->Response_ContentLength64(&total);
    const auto received = static_cast<std::uint64_t>(m_session->Request_ContentBytesRead64());
    const std::chrono::duration<double> passed = now - m_start;
    std::fprintf(m_out.errors(), "\r\x1b[K%s",
                 fetch_line(received, total, passed.count(), columns).c_str());
    std::fflush(m_out.errors());
    m_is_line_shown = true;
}

void download::clear_progress() {
    if (m_is_line_shown) std::fputs("\r\x1b[K", m_out.errors());
    m_is_line_shown = false;
}

std::string download::words_for(long result) const {
    if (result <= k_first_status_code) {
        std::uint32_t status = 0;
        m_session->Response_StatusCode(&status);
        return "the server answered " + std::to_string(status);
    }
    const std::string words = words_for_request(result, m_session->Request_Error(), m_has_head);
    return words.empty() ? "failed with code " + std::to_string(result) : words;
}

int download::conclude(long result) {
    const outcome closed = m_to.close();
    if (m_written.ok()) m_written = closed;
    if (m_watch.status() != 0) return tell(m_watch.status(), "interrupted");
    if (!m_written.ok()) return tell(k_exit_failed, m_written.text());
    clear_progress();
    const std::string words = result == 0 ? std::string() : words_for(result);
    if (result != 0 && m_log.logger() != nullptr) {
        m_log.logger()->Error(static_cast<std::int32_t>(result), words.c_str());
    }
    const outcome logged = m_log.close();
    if (result != 0) return tell(exit_status_of(result, m_session->Request_Error()), words);
    return logged.ok() ? k_exit_fine : tell(k_exit_failed, logged.text());
}

int download::run() {
    if (m_session == nullptr) return tell(k_exit_failed, outcome::no_memory().text());
    if (m_options.output.empty() && !m_out.has_output()) {
        return tell(k_exit_failed, "standard output is closed");
    }
    const outcome writable =
        m_options.output.empty() ? outcome::fine() : can_be_written(m_options.output);
    if (!writable.ok()) return tell(k_exit_failed, writable.text());
    const outcome logged = m_log.open(m_options.http.log, k_max_logged_bytes);
    if (!logged.ok()) return tell(k_exit_failed, logged.text());
    return conclude(request());
}

}  // namespace

int fetch(const fetch_options& options, const console& out) { return download(options, out).run(); }

}  // namespace pennywort::host
