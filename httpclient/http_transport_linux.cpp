// http_transport_linux.cpp - Linux half of http_transport.h, over libcurl's multi interface on the
// caller's thread. Windows half: http_transport_win.cpp.
//
// libcurl runs a transfer as a whole; the steps wait until it has come as far as each of them goes.
// Redirects are followed here and not by libcurl, whose rules cannot refuse the one from https to
// http alone.
#include "httpclient/http_transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "core/http/head_parser.h"
#include "core/limits.h"
#include "core/run/clock.h"
#include "core/run/deadline.h"
#include "core/run/guarded.h"
#include "core/text/ascii.h"
#include "httpclient/curl_lines.h"
#include "httpclient/curl_request.h"

namespace pennywort::httpclient {

namespace {

// As WinHTTP numbers them.
enum : std::int32_t {
    k_error_timed_out = 12002,
    k_error_invalid_url = 12005,
    k_error_name_not_resolved = 12007,
    k_error_cancelled = 12017,
    k_error_cannot_connect = 12029,
    k_error_connection_lost = 12030,
    k_error_invalid_response = 12152,
    k_error_redirect_failed = 12156,
    k_error_secure_failure = 12175,
};

std::int32_t error_number(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return k_error_timed_out;
        case CURLE_URL_MALFORMAT:
            return k_error_invalid_url;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return k_error_name_not_resolved;
        case CURLE_COULDNT_CONNECT:
            return k_error_cannot_connect;
        case CURLE_WEIRD_SERVER_REPLY:
            return k_error_invalid_response;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            return k_error_secure_failure;
        default:
            return k_error_connection_lost;
    }
}

// A list of header lines, as libcurl takes it.
class header_list {
public:
    header_list() = default;
    header_list(const header_list&) = delete;
    header_list& operator=(const header_list&) = delete;
    ~header_list() { clear(); }

    void clear() { ::curl_slist_free_all(std::exchange(m_first, nullptr)); }
    bool add(const std::string& line) {
        curl_slist* const longer = ::curl_slist_append(m_first, line.c_str());
        if (longer == nullptr) return false;
        m_first = longer;
        return true;
    }
    curl_slist* get() const { return m_first; }

private:
    curl_slist* m_first = nullptr;
};

class curl_transport final : public http_transport {
public:
    ~curl_transport() override { close_all(); }

    bool open_session(const std::string& user_agent, const proxy_choice& proxy,
                      const std::string& ca_file) override;
    bool has_session() const override { return m_has_session; }
    bool connect(const std::string& host, std::int32_t port) override;
    bool open_request(const char* verb, const std::string& object, bool is_secure) override;
    bool has_request() const override { return m_has_request; }
    void set_timeouts(std::int32_t milliseconds) override { m_timeout_ms = milliseconds; }
    bool send_headers(const std::string& headers, std::uint32_t total) override;
    bool write_body(const void* body, std::uint32_t length) override;
    receive_result receive() override;
    bool bytes_available(std::uint32_t& count) override;
    bool read(char* into, std::uint32_t size) override;
    bool query(header_query what, std::string& out) const override;
    void close_all() override;
    void cancel() override;
    std::int32_t last_error() const override { return m_error; }

private:
    // How far the transfer has come.
    struct progress {
        bool is_connected = false;  // the request goes out
        bool has_head = false;      // of the final response
        bool is_done = false;
        CURLcode result = CURLE_OK;
    };

    bool start(const std::string& headers, std::uint32_t total);
    bool set_options(const std::string& headers, std::uint32_t total);
    void set_tls_and_proxy();
    void set_callbacks();
    bool set_headers(const std::string& headers);
    std::string destination() const;
    template <typename condition>
    bool run_until(condition is_reached);
    run::deadline patience() const;
    bool run_once();
    void note_end();
    bool wait(const run::deadline& end);
    bool follow();
    void resume();
    void end_transfer();
    std::unique_ptr<curl_line> set_line(std::unique_ptr<curl_line> line);
    bool fail(std::int32_t error);
    bool fail_with_result() { return fail(error_number(m_progress.result)); }

    std::size_t take_head_line(std::string_view line);
    void append_head_line(std::string_view line);
    bool take_head();
    std::size_t take_body(std::string_view bytes);
    std::size_t give_body(char* into, std::size_t room);
    static std::size_t on_header(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t on_body(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t on_read(char* into, std::size_t size, std::size_t count, void* self);
    static int on_seek(void* self, curl_off_t offset, int origin);
    static int on_connected(void* self, char*, char*, int, int);

    std::string m_user_agent;
    proxy_choice m_proxy;
    std::string m_ca_file;
    std::string m_verb;
    request_target m_target;
    std::string m_header_block;
    std::uint32_t m_total = 0;
    std::int32_t m_timeout_ms = 0;
    bool m_has_session = false;
    bool m_has_connection = false;
    bool m_has_request = false;

    std::mutex m_line_mutex;  // held to change m_line, and to look at it from another thread
    std::unique_ptr<curl_line> m_line;
    header_list m_headers;
    progress m_progress;
    bool m_moved = false;    // bytes have gone one way or the other in the last round
    std::string m_raw_head;  // of the last response, its status line first
    http::message_head m_head;
    bool m_is_interim = false;  // m_head came before the final one
    int m_interim_heads = 0;
    std::optional<redirect> m_next;  // where the response sends the request
    std::string m_buffer;
    std::size_t m_taken = 0;  // of the buffer
    bool m_is_paused = false;
    std::size_t m_skipped = 0;  // bytes of the body of a redirect
    bool m_is_skipping = false;
    std::string_view m_body;
    std::size_t m_sent = 0;
    bool m_has_body = false;
    int m_redirects = 0;
    std::int32_t m_error = 0;
    std::atomic<bool> m_is_cancelled{false};
};

bool curl_transport::fail(std::int32_t error) {
    m_error = error;
    return false;
}

bool curl_transport::open_session(const std::string& user_agent, const proxy_choice& proxy,
                                  const std::string& ca_file) {
    m_is_cancelled = false;
    if (!proxy.is_system_default && proxy.servers.empty()) return fail(k_error_invalid_url);
    m_user_agent = user_agent;
    m_proxy = proxy;
    m_ca_file = ca_file;
    m_has_session = true;
    return true;
}

bool curl_transport::connect(const std::string& host, std::int32_t port) {
    if (!is_host(host) || port < 1 || port > 0xFFFF) return fail(k_error_invalid_url);
    m_target.host = host;
    m_target.port = port;
    m_has_connection = true;
    return true;
}

bool curl_transport::open_request(const char* verb, const std::string& object, bool is_secure) {
    if (!m_has_connection) return fail(k_error_invalid_url);
    m_verb = verb == nullptr ? "GET" : verb;
    m_target.object = escaped_object(object);
    m_target.is_secure = is_secure;
    m_has_request = true;
    return true;
}

// Whoever may use one connection may use the other.
std::string curl_transport::destination() const {
    return m_target.origin() + "|" + (m_proxy.is_system_default ? "" : m_proxy.servers) + "|" +
           m_ca_file;
}

bool curl_transport::send_headers(const std::string& headers, std::uint32_t total) {
    if (!m_has_request || m_is_cancelled) return fail(k_error_cancelled);
    m_header_block = headers;
    m_total = total;
    m_redirects = 0;
    m_body = {};
    m_has_body = false;
    if (!start(headers, total)) return false;
    return run_until([this] { return m_progress.is_connected; });
}

bool curl_transport::start(const std::string& headers, std::uint32_t total) {
    m_progress = {};
    m_raw_head.clear();
    m_is_interim = false;
    m_interim_heads = 0;
    m_next.reset();
    m_buffer.clear();
    m_taken = 0;
    m_skipped = 0;
    m_sent = 0;
    m_is_paused = false;
    set_line(curl_lines::borrow(destination()));
    if (m_line == nullptr) return fail(k_error_connection_lost);
    if (!set_options(headers, total)) return fail(k_error_invalid_url);
    return ::curl_multi_add_handle(m_line->multi.get(), m_line->easy.get()) == CURLM_OK ||
           fail(k_error_connection_lost);
}

bool curl_transport::set_options(const std::string& headers, std::uint32_t total) {
    CURL* const easy = m_line->easy.get();
    ::curl_easy_reset(easy);
    // Of whoever used the line before.
    ::curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
    ::curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
    ::curl_easy_setopt(easy, CURLOPT_URL, m_target.url().c_str());
    ::curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    ::curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    ::curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    ::curl_easy_setopt(easy, CURLOPT_USERAGENT, m_user_agent.c_str());
    ::curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // A name server that is silent must not hold the caller when the time has passed.
    ::curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
    const bool has_body = total > 0 || m_verb == "POST" || m_verb == "PUT" || m_verb == "PATCH";
    if (has_body) {
        ::curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
        ::curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(total));
    }
    ::curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, m_verb.c_str());
    const long bound = m_timeout_ms > 0 ? m_timeout_ms : std::numeric_limits<std::int32_t>::max();
    ::curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, bound);
    set_callbacks();
    set_tls_and_proxy();
    return set_headers(headers);
}

void curl_transport::set_tls_and_proxy() {
    CURL* const easy = m_line->easy.get();
    if (!m_ca_file.empty()) {
        ::curl_easy_setopt(easy, CURLOPT_CAINFO, m_ca_file.c_str());
        ::curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    }
    // Set even where there is none: libcurl would read the environment by itself.
    const std::string server =
        m_proxy.is_system_default ? "" : proxy_for(m_proxy.servers, m_target.is_secure);
    ::curl_easy_setopt(easy, CURLOPT_PROXY, server.c_str());
    ::curl_easy_setopt(easy, CURLOPT_NOPROXY, m_proxy.bypass.c_str());
}

void curl_transport::set_callbacks() {
    CURL* const easy = m_line->easy.get();
    ::curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &curl_transport::on_header);
    ::curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    ::curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    ::curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &curl_transport::on_body);
    ::curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    ::curl_easy_setopt(easy, CURLOPT_READFUNCTION, &curl_transport::on_read);
    ::curl_easy_setopt(easy, CURLOPT_READDATA, this);
    ::curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &curl_transport::on_seek);
    ::curl_easy_setopt(easy, CURLOPT_SEEKDATA, this);
    ::curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &curl_transport::on_connected);
    ::curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
    ::curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, static_cast<long>(k_http_receive_bytes));
}

// Nothing goes out that the caller has not asked for, as with WinHTTP: libcurl would add these two.
bool curl_transport::set_headers(const std::string& headers) {
    m_headers.clear();
    std::string_view rest = headers;
    while (!rest.empty()) {
        const std::size_t end = rest.find("\r\n");
        const std::string line = curl_header_line(rest.substr(0, end));
        if (line.empty() || !m_headers.add(line)) return false;
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
    }
    if (!has_header(headers, "Accept") && !m_headers.add("Accept:")) return false;
    if (!has_header(headers, "Expect") && !m_headers.add("Expect:")) return false;
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_HTTPHEADER, m_headers.get());
    return true;
}

bool curl_transport::write_body(const void* body, std::uint32_t length) {
    if (m_line == nullptr) return false;
    m_body = {static_cast<const char*>(body), length};
    m_has_body = true;
    ::curl_easy_pause(m_line->easy.get(), CURLPAUSE_CONT);
    // A server may answer before it has read everything; what it says counts then.
    const bool is_written = run_until([this] { return m_sent >= m_body.size(); });
    return is_written || m_progress.has_head;
}

receive_result curl_transport::receive() {
    if (m_line == nullptr) return receive_result::failed;
    const auto has_come = [this] { return run_until([this] { return m_progress.has_head; }); };
    bool is_fine = has_come();
    while (is_fine && m_next) is_fine = follow() && has_come();
    if (is_fine) return receive_result::response;
    return m_error == k_error_timed_out ? receive_result::timed_out : receive_result::failed;
}

// Goes on to where the response that has come points. False when that fails.
bool curl_transport::follow() {
    if (++m_redirects > k_max_redirects) return fail(k_error_redirect_failed);
    const redirect next = *std::exchange(m_next, std::nullopt);
    // The body of the redirect is read to its end, if it is short, so that its connection can be
    // used again.
    m_is_skipping = true;
    resume();
    run_until([this] { return m_progress.is_done; });
    m_is_skipping = false;
    if (m_is_cancelled) return false;
    end_transfer();
    m_target = next.target;
    m_verb = next.verb;
    m_header_block = next.headers;
    if (!next.has_body) {
        m_total = 0;
        m_body = {};
    }
    return start(m_header_block, m_total);
}

// Runs the transfer until it has come where the step goes. False when it ends or stalls before.
template <typename condition>
bool curl_transport::run_until(condition is_reached) {
    run::deadline end = patience();
    while (!is_reached()) {
        if (m_is_cancelled) return fail(k_error_cancelled);
        if (m_progress.is_done) return fail_with_result();
        m_moved = false;
        if (!run_once()) return false;
        if (is_reached()) break;
        if (m_moved) end = patience();
        if (!m_progress.is_done && !wait(end)) return false;
    }
    return true;
}

// How long nothing may move. While libcurl connects its own bound holds.
run::deadline curl_transport::patience() const {
    return m_timeout_ms > 0 ? run::deadline(std::chrono::milliseconds(m_timeout_ms))
                            : run::deadline::never();
}

bool curl_transport::run_once() {
    int running = 0;
    if (::curl_multi_perform(m_line->multi.get(), &running) != CURLM_OK) {
        return fail(k_error_connection_lost);
    }
    if (running == 0) note_end();
    return true;
}

void curl_transport::note_end() {
    int left = 0;
    while (const CURLMsg* message = ::curl_multi_info_read(m_line->multi.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        m_progress.is_done = true;
        m_progress.result = message->data.result;
    }
}

// cancel() wakes it. libcurl itself shortens it where it has something to do earlier.
bool curl_transport::wait(const run::deadline& end) {
    if (m_progress.is_connected && end.has_passed()) return fail(k_error_timed_out);
    const int bound_ms = end.left_ms();
    return ::curl_multi_poll(m_line->multi.get(), nullptr, 0, bound_ms, nullptr) == CURLM_OK ||
           fail(k_error_connection_lost);
}

bool curl_transport::bytes_available(std::uint32_t& count) {
    count = 0;
    if (m_line == nullptr || !m_progress.has_head) return false;
    if (m_taken == m_buffer.size()) {
        m_buffer.clear();
        m_taken = 0;
        resume();
        run_until([this] { return !m_buffer.empty() || m_progress.is_done; });
    }
    count = static_cast<std::uint32_t>(m_buffer.size() - m_taken);
    if (count > 0) return true;
    return m_progress.is_done && (m_progress.result == CURLE_OK || fail_with_result());
}

void curl_transport::resume() {
    if (std::exchange(m_is_paused, false)) ::curl_easy_pause(m_line->easy.get(), CURLPAUSE_CONT);
}

bool curl_transport::read(char* into, std::uint32_t size) {
    if (size > m_buffer.size() - m_taken) return false;
    std::memcpy(into, m_buffer.data() + m_taken, size);
    m_taken += size;
    return true;
}

bool curl_transport::query(header_query what, std::string& out) const {
    if (!m_progress.has_head) return false;
    std::optional<std::string_view> found = m_raw_head;
    switch (what) {
        case header_query::content_type:
            found = m_head.headers.find("Content-Type");
            break;
        case header_query::content_length:
            found = m_head.headers.find("Content-Length");
            break;
        case header_query::status_code:
            out = std::to_string(m_head.status);
            return true;
        case header_query::raw_headers:
            break;
    }
    if (found) out = *found;
    return found.has_value();
}

void curl_transport::end_transfer() {
    if (m_line == nullptr) return;
    ::curl_multi_remove_handle(m_line->multi.get(), m_line->easy.get());
    ::curl_easy_reset(m_line->easy.get());
    // Without memory to keep it the line ends here, and its connection with it.
    run::guarded("cHttpSession_winhttp", "keeping a connection",
                 [this] { curl_lines::give_back(set_line(nullptr)); });
}

std::unique_ptr<curl_line> curl_transport::set_line(std::unique_ptr<curl_line> line) {
    const std::lock_guard lock(m_line_mutex);
    m_line.swap(line);
    return line;
}

void curl_transport::close_all() {
    end_transfer();
    m_headers.clear();
    m_progress = {};
    m_has_request = false;
    m_has_connection = false;
    m_has_session = false;
}

void curl_transport::cancel() {
    m_is_cancelled = true;
    const std::lock_guard lock(m_line_mutex);
    if (m_line != nullptr) ::curl_multi_wakeup(m_line->multi.get());
}

// 0, which ends the transfer, for a head that is too long or none.
std::size_t curl_transport::take_head_line(std::string_view line) {
    m_moved = true;
    // Behind the body: headers that came with its last chunk.
    if (m_progress.has_head) return line.size();
    if (std::exchange(m_is_interim, false)) m_raw_head.clear();
    if (m_raw_head.size() + line.size() > k_max_head_bytes) return 0;
    const bool is_last = line == "\r\n" || line == "\n";
    append_head_line(line);
    return !is_last || take_head() ? line.size() : 0;
}

// With CR LF at the end of every line, and a folded value in one line: who reads the raw head knows
// neither of the two.
void curl_transport::append_head_line(std::string_view line) {
    const bool is_folded = !m_raw_head.empty() && (line.front() == ' ' || line.front() == '\t');
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (is_folded) {
        m_raw_head.resize(m_raw_head.size() - 2);
        m_raw_head += ' ';
        line = text::trimmed(line);
    }
    m_raw_head.append(line).append("\r\n");
}

bool curl_transport::take_head() {
    http::head_parser parser(http::head_kind::answer, http::k_tolerant_answers);
    parser.feed(m_raw_head);
    if (parser.status() != http::head_parser::state::complete) return false;
    m_head = parser.head();
    // What comes before the final response ("100 Continue") is not told.
    m_is_interim = m_head.status >= 100 && m_head.status < 200;
    if (m_is_interim) return ++m_interim_heads <= k_max_interim_responses;
    m_next = redirect_of(m_target, m_verb, m_header_block, m_head);
    m_progress.has_head = true;
    return true;
}

std::size_t curl_transport::take_body(std::string_view bytes) {
    m_moved = true;
    if (m_is_skipping) {
        m_skipped += bytes.size();
        return m_skipped > k_max_skipped_bytes ? 0 : bytes.size();
    }
    if (m_next || m_buffer.size() >= k_http_receive_bytes) {
        m_is_paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    m_buffer.append(bytes);
    return bytes.size();
}

std::size_t curl_transport::give_body(char* into, std::size_t room) {
    if (!m_has_body) return CURL_READFUNC_PAUSE;
    const std::size_t count = std::min(room, m_body.size() - m_sent);
    std::memcpy(into, m_body.data() + m_sent, count);
    m_sent += count;
    m_moved = true;
    // A shorter body than was announced: the rest never comes, and the server is waited for.
    return count == 0 && m_sent < m_total ? CURL_READFUNC_PAUSE : count;
}

std::size_t curl_transport::on_header(char* bytes, std::size_t size, std::size_t count,
                                      void* self) {
    return run::guarded_or<std::size_t>(0, "cHttpSession_winhttp", "a header", [&] {
        return static_cast<curl_transport*>(self)->take_head_line({bytes, size * count});
    });
}

std::size_t curl_transport::on_body(char* bytes, std::size_t size, std::size_t count, void* self) {
    return run::guarded_or<std::size_t>(0, "cHttpSession_winhttp", "a piece of a body", [&] {
        return static_cast<curl_transport*>(self)->take_body({bytes, size * count});
    });
}

std::size_t curl_transport::on_read(char* into, std::size_t size, std::size_t count, void* self) {
    return static_cast<curl_transport*>(self)->give_body(into, size * count);
}

// A connection that had been kept turned out to be closed: libcurl sends everything again.
int curl_transport::on_seek(void* self, curl_off_t offset, int origin) {
    auto& transport = *static_cast<curl_transport*>(self);
    if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
    if (static_cast<std::size_t>(offset) > transport.m_body.size()) return CURL_SEEKFUNC_FAIL;
    transport.m_sent = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int curl_transport::on_connected(void* self, char*, char*, int, int) {
    auto& transport = *static_cast<curl_transport*>(self);
    transport.m_progress.is_connected = true;
    transport.m_moved = true;
    return CURL_PREREQFUNC_OK;
}

}  // namespace

std::unique_ptr<http_transport> http_transport::make() {
    return std::make_unique<curl_transport>();
}

}  // namespace pennywort::httpclient
