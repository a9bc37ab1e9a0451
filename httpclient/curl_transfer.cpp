// httpclient/curl_transfer.cpp - see the header for the contract.
#include "httpclient/curl_transfer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/text/ascii.h"
#include "httpclient/http_transport.h"

namespace pennywort::httpclient {

namespace {

constexpr char k_class[] = "cHttpSession_winhttp";

// libcurl puts a body into one packet with its headers up to this size.
constexpr std::uint32_t k_body_with_headers = 64 * 1024;

request_error fault_of(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return k_error_timed_out;
        case CURLE_URL_MALFORMAT:
            return k_error_bad_url;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return k_error_unknown_name;
        case CURLE_COULDNT_CONNECT:
            return k_error_no_connection;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // a status line of no version that is known
        case CURLE_WRITE_ERROR:           // a head that take_head_line has refused
        case CURLE_BAD_CONTENT_ENCODING:
            return k_error_bad_response;
        case CURLE_OUT_OF_MEMORY:
            return k_error_no_memory;
        case CURLE_SSL_CONNECT_ERROR:
            return k_error_no_tls;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
            return k_error_not_trusted;
        default:
            return k_error_connection_lost;
    }
}

bool has_body_by_nature(const std::string& verb) {
    return verb == "POST" || verb == "PUT" || verb == "PATCH";
}

}  // namespace

bool curl_transfer::fail(request_error fault) {
    m_fault = fault;
    return false;
}

bool curl_transfer::start(const curl_order& order) {
    end();
    forget();
    m_patience = order.patience;
    m_total = order.total;
    set_line(curl_lines::borrow(order.destination));
    if (m_line == nullptr) return fail(k_error_no_memory);
    if (!set_options(order, order.origin + order.target.object)) return false;
    return ::curl_multi_add_handle(m_line->multi.get(), m_line->easy.get()) == CURLM_OK ||
           fail(k_error_connection_lost);
}

void curl_transfer::forget() {
    m_is_connected = m_has_head = m_is_done = m_is_out_of_memory = false;
    m_result = CURLE_OK;
    m_raw_head.clear();
    m_is_interim = false;
    m_interim_heads = 0;
    m_mode = body_mode::kept;
    m_is_paused = false;
    m_dropped = 0;
    m_cookies.clear();
    m_body = {};
    m_sent = 0;
    m_has_body = m_is_reading = false;
}

// libcurl keeps a copy, for which memory may be out.
bool curl_transfer::set_text(CURLoption option, const char* text) {
    const CURLcode result = ::curl_easy_setopt(m_line->easy.get(), option, text);
    if (result == CURLE_OK) return true;
    return fail(result == CURLE_OUT_OF_MEMORY ? k_error_no_memory : k_error_bad_url);
}

bool curl_transfer::set_options(const curl_order& order, const std::string& url) {
    curl_told& told = m_line->told;
    if (!told.is_set_up) {
        if (!set_rules() || !set_route(order)) return false;
        set_callbacks();
        told.is_set_up = true;
    }
    set_user();
    set_cookies(order.cookies);
    const long bound = m_patience.connect_ms > 0 ? m_patience.connect_ms
                                                 : std::numeric_limits<std::int32_t>::max();
    if (std::exchange(told.connect_ms, bound) != bound) {
        ::curl_easy_setopt(m_line->easy.get(), CURLOPT_CONNECTTIMEOUT_MS, bound);
    }
    return set_url(url) && set_body(order) && set_headers(order);
}

// What no order changes. A line keeps it from one to the next, which saves a third of the time that
// a short request takes. What it would keep must be whole: the certificates of the system would be
// trusted for all later orders, for instance.
bool curl_transfer::set_rules() {
    CURL* const easy = m_line->easy.get();
    ::curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    ::curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    ::curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // A name server that is silent must not hold the caller when the time has passed.
    ::curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
    ::curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, long{k_read_bytes});
    ::curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    return set_text(CURLOPT_COOKIEFILE, "") && set_text(CURLOPT_PROTOCOLS_STR, "http,https");
}

void curl_transfer::set_user() {
    if (std::exchange(m_line->told.user, this) == this) return;
    for (const CURLoption data : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_READDATA,
                                  CURLOPT_SEEKDATA, CURLOPT_PREREQDATA}) {
        ::curl_easy_setopt(m_line->easy.get(), data, this);
    }
}

// A line brings along the cookies of whoever used it before.
void curl_transfer::set_cookies(const std::vector<std::string>& cookies) {
    CURL* const easy = m_line->easy.get();
    bool& has_cookies = m_line->told.has_cookies;
    if (std::exchange(has_cookies, false)) ::curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
    for (const std::string& cookie : cookies) {
        has_cookies = true;
        ::curl_easy_setopt(easy, CURLOPT_COOKIELIST, cookie.c_str());
    }
}

bool curl_transfer::set_url(const std::string& url) {
    std::string& told = m_line->told.url;
    if (told == url) return true;
    told.clear();
    CURLU* const parts = m_line->url.get();
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_CURLU, parts);
    // The text of the one before, which would go on to stand for this one.
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_URL, nullptr);
    const CURLUcode result = ::curl_url_set(parts, CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS);
    if (result != CURLUE_OK) {
        return fail(result == CURLUE_OUT_OF_MEMORY ? k_error_no_memory : k_error_bad_url);
    }
    told = url;
    return true;
}

// A body that is read piece by piece goes out in packets of its own, which costs a short request a
// tenth of its time.
bool curl_transfer::set_body(const curl_order& order) {
    CURL* const easy = m_line->easy.get();
    const bool is_plain_get = order.total == 0 && order.verb == "GET";
    if (is_plain_get && m_line->told.is_plain_get) return true;
    m_line->told.is_plain_get = false;
    // Undoes what the order before has made of it.
    ::curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    const bool is_short = order.is_body_known && order.total <= k_body_with_headers;
    if (order.total == 0 ? has_body_by_nature(order.verb) : is_short) {
        const char* const bytes = order.total == 0 ? "" : order.body.data();
        ::curl_easy_setopt(easy, CURLOPT_POSTFIELDS, bytes);
        ::curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{order.total});
    } else if (order.total > 0) {
        m_is_reading = true;
        ::curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
        ::curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, curl_off_t{order.total});
    }
    const bool is_usual = order.verb == (order.total == 0 ? "GET" : "POST") && !m_is_reading;
    const char* const verb = is_usual ? nullptr : order.verb.c_str();
    const bool is_fine = set_text(CURLOPT_CUSTOMREQUEST, verb);
    m_line->told.is_plain_get = is_fine && is_plain_get;
    return is_fine;
}

bool curl_transfer::set_route(const curl_order& order) {
    if (!order.ca_file.empty()) {
        if (!set_text(CURLOPT_CAINFO, order.ca_file.c_str())) return false;
        ::curl_easy_setopt(m_line->easy.get(), CURLOPT_CAPATH, nullptr);
    }
    // Set even where there is none: libcurl would read the environment by itself.
    return set_text(CURLOPT_USERAGENT, order.user_agent.c_str()) &&
           set_text(CURLOPT_PROXY, order.proxy.c_str()) && set_text(CURLOPT_NOPROXY, "");
}

void curl_transfer::set_callbacks() {
    CURL* const easy = m_line->easy.get();
    ::curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &curl_transfer::on_header);
    ::curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &curl_transfer::on_body);
    ::curl_easy_setopt(easy, CURLOPT_READFUNCTION, &curl_transfer::on_read);
    ::curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &curl_transfer::on_seek);
    ::curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &curl_transfer::on_connected);
}

bool curl_transfer::set_headers(const curl_order& order) {
    curl_told& told = m_line->told;
    const bool has_body = order.total > 0 || has_body_by_nature(order.verb);
    const bool is_told = told.has_headers && told.is_with_body == has_body;
    if (is_told && told.block == order.headers) return true;
    told.has_headers = false;
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_HTTPHEADER, nullptr);
    m_line->headers.clear();
    if (!make_headers(order, has_body)) return false;
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_HTTPHEADER, m_line->headers.get());
    told.block = order.headers;
    told.is_with_body = has_body;
    told.has_headers = true;
    return true;
}

// Nothing goes out that the caller has not asked for, as with WinHTTP: libcurl would add these, the
// last two to a request with a body.
bool curl_transfer::make_headers(const curl_order& order, bool has_body) {
    return add_lines(order.headers) && leave_out("Accept", order.headers) &&
           (!has_body ||
            (leave_out("Expect", order.headers) && leave_out("Content-Type", order.headers)));
}

bool curl_transfer::leave_out(const char* name, std::string_view block) {
    return has_header(block, name) || m_line->headers.add(std::string(name) + ":") ||
           fail(k_error_no_memory);
}

bool curl_transfer::add_lines(std::string_view block) {
    while (!block.empty()) {
        const std::size_t end = block.find("\r\n");
        const std::string line = curl_header_line(block.substr(0, end));
        if (line.empty()) return fail(k_error_bad_url);
        if (!m_line->headers.add(line)) return fail(k_error_no_memory);
        block.remove_prefix(end == std::string_view::npos ? block.size() : end + 2);
    }
    return true;
}

void curl_transfer::send_body(std::string_view body) {
    m_body = body;
    m_has_body = true;
    if (m_is_reading && m_line != nullptr) {
        ::curl_easy_pause(m_line->easy.get(), m_is_paused ? CURLPAUSE_RECV : CURLPAUSE_CONT);
    }
}

bool curl_transfer::is_at(curl_stage stage) const {
    switch (stage) {
        case curl_stage::connected:
            return m_is_connected;
        case curl_stage::sent:
            return !m_is_reading || m_sent >= m_body.size();
        case curl_stage::head:
            return m_has_head;
        case curl_stage::piece:
            return !piece().empty() || m_is_done;
        case curl_stage::end:
            break;
    }
    return m_is_done;
}

bool curl_transfer::reach(curl_stage stage) {
    if (stage == curl_stage::piece && piece().empty()) resume();
    // Not asked for before it is needed: the clock costs as much as the rest.
    std::optional<run::deadline> end;
    while (!is_at(stage)) {
        if (m_is_cancelled) return fail(k_error_stopped);
        if (m_is_done || m_line == nullptr) return fail(end_fault());
        m_has_moved = false;
        if (!run_once()) return false;
        if (is_at(stage) || m_is_done) continue;
        if (m_has_moved || !end) end = patience();
        if (!wait(*end)) return false;
    }
    // An end that was no good one is no end.
    const bool is_broken = m_is_done && m_result != CURLE_OK && piece().empty();
    const bool is_reading = stage == curl_stage::piece || stage == curl_stage::end;
    return !is_reading || !is_broken || fail(end_fault());
}

// libcurl knows only that a callback took nothing.
request_error curl_transfer::end_fault() const {
    return m_is_out_of_memory ? k_error_no_memory : fault_of(m_result);
}

run::deadline curl_transfer::patience() const {
    return m_patience.move_ms > 0 ? run::deadline(std::chrono::milliseconds(m_patience.move_ms))
                                  : run::deadline::never();
}

bool curl_transfer::run_once() {
    int running = 0;
    if (::curl_multi_perform(m_line->multi.get(), &running) != CURLM_OK) {
        return fail(k_error_connection_lost);
    }
    if (running == 0) note_end();
    return true;
}

void curl_transfer::note_end() {
    int left = 0;
    while (const CURLMsg* message = ::curl_multi_info_read(m_line->multi.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        finish(message->data.result);
        return;
    }
}

// The connection is free for others from here on, while the caller still reads.
void curl_transfer::finish(CURLcode result) {
    m_is_done = true;
    m_result = result;
    keep_cookies();
    release();
}

// cancel() wakes it. libcurl shortens it by itself where it has something to do earlier, and has
// its own bound while it connects.
bool curl_transfer::wait(const run::deadline& end) {
    const int bound_ms = m_is_connected ? end.left_ms() : std::numeric_limits<std::int32_t>::max();
    if (bound_ms == 0) return fail(k_error_timed_out);
    return ::curl_multi_poll(m_line->multi.get(), nullptr, 0, bound_ms, nullptr) == CURLM_OK ||
           fail(k_error_connection_lost);
}

void curl_transfer::keep_body() {
    if (m_mode == body_mode::held) m_mode = body_mode::kept;
}

void curl_transfer::drop_body() {
    m_mode = body_mode::dropped;
    resume();
}

void curl_transfer::resume() {
    if (!m_is_paused || m_line == nullptr) return;
    m_is_paused = false;
    // It may call back with what it has held, and be paused again.
    const CURLcode result = ::curl_easy_pause(m_line->easy.get(), CURLPAUSE_CONT);
    if (result != CURLE_OK) finish(result);
}

// Only a redirect has a next request that could send them.
void curl_transfer::keep_cookies() {
    if (m_mode == body_mode::kept) return;
    curl_slist* list = nullptr;
    if (::curl_easy_getinfo(m_line->easy.get(), CURLINFO_COOKIELIST, &list) != CURLE_OK) return;
    const std::unique_ptr<curl_slist, decltype(&::curl_slist_free_all)> owner(
        list, ::curl_slist_free_all);
    for (const curl_slist* each = list; each != nullptr; each = each->next) {
        m_cookies.emplace_back(each->data);
    }
}

void curl_transfer::release() {
    if (m_line == nullptr) return;
    ::curl_multi_remove_handle(m_line->multi.get(), m_line->easy.get());
    forget_retries();
    curl_lines::give_back(set_line(nullptr));
}

// A handle of libcurl's counts how often a kept connection turned out to be closed, over all its
// requests, and refuses the sixth. Each time there is a new connection then.
void curl_transfer::forget_retries() {
    long connections = 0;
    ::curl_easy_getinfo(m_line->easy.get(), CURLINFO_NUM_CONNECTS, &connections);
    if (connections == 0) return;
    // Which libcurl 7.88 forgets at a reset without giving its memory back.
    ::curl_easy_setopt(m_line->easy.get(), CURLOPT_COOKIEFILE, nullptr);
    ::curl_easy_reset(m_line->easy.get());
    m_line->told = {};
}

std::unique_ptr<curl_line> curl_transfer::set_line(std::unique_ptr<curl_line> line) {
    const std::lock_guard lock(m_line_mutex);
    m_line.swap(line);
    return line;
}

void curl_transfer::end() {
    // First: nothing may reach what the caller has offered, from here on.
    offer(nullptr, 0);
    release();
    // Of a large body; a session that waits for its next request need not keep it.
    if (m_buffer.capacity() > k_body_with_headers) std::string().swap(m_buffer);
    m_buffer.clear();
    m_taken = 0;
    m_has_head = false;
}

void curl_transfer::cancel() {
    m_is_cancelled = true;
    const std::lock_guard lock(m_line_mutex);
    if (m_line != nullptr) ::curl_multi_wakeup(m_line->multi.get());
}

// 0, which ends the exchange, for a head that is too long or none.
std::size_t curl_transfer::take_head_line(std::string_view line) {
    // Behind the body: headers that came with its last chunk.
    if (m_has_head) return line.size();
    if (text::begins_ignoring_case(line, "Set-Cookie")) m_line->told.has_cookies = true;
    if (std::exchange(m_is_interim, false)) m_raw_head.clear();
    // Only the first: a server that sends line by line could hold the caller as long as it likes.
    if (m_raw_head.empty()) m_has_moved = true;
    if (m_raw_head.size() + line.size() > k_max_head_bytes) return 0;
    const bool is_last = line == "\r\n" || line == "\n";
    append_head_line(line);
    return !is_last || take_head() ? line.size() : 0;
}

// With CR LF at the end of every line, and a folded value in one line: who reads the raw head knows
// neither of the two.
void curl_transfer::append_head_line(std::string_view line) {
    const bool is_folded = !m_raw_head.empty() && text::is_blank(line.front());
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (is_folded) {
        m_raw_head.resize(m_raw_head.size() - 2);
        m_raw_head += ' ';
        line = text::trimmed(line);
    }
    m_raw_head.append(line).append("\r\n");
}

bool curl_transfer::take_head() {
    m_parser.reset();
    m_parser.feed(m_raw_head);
    if (m_parser.status() != http::head_parser::state::complete) return false;
    m_is_interim = head().status >= 100 && head().status < 200;
    if (m_is_interim) return ++m_interim_heads <= k_max_interim_responses;
    if (is_redirect(head().status)) m_mode = body_mode::held;
    m_has_head = true;
    return true;
}

std::size_t curl_transfer::take_body(std::string_view bytes) {
    if (m_mode == body_mode::dropped) {
        // No move: nobody waits for these bytes longer than once.
        m_dropped += bytes.size();
        return m_dropped > k_max_skipped_bytes ? 0 : bytes.size();
    }
    if (m_mode == body_mode::held || m_buffer.size() >= k_http_receive_bytes) {
        m_is_paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    if (m_buffer.empty() && bytes.size() <= m_room - m_landed) {
        std::memcpy(m_offered + m_landed, bytes.data(), bytes.size());
        m_landed += bytes.size();
    } else {
        m_buffer.append(bytes);
    }
    m_has_moved = true;
    return bytes.size();
}

std::string_view curl_transfer::piece() const {
    if (m_landed > 0) return {m_offered, m_landed};
    return std::string_view(m_buffer).substr(m_taken);
}

void curl_transfer::take_piece(std::size_t count) {
    if (m_landed > 0) {
        m_offered += count;
        m_room -= count;
        m_landed -= count;
        if (m_landed == 0) offer(nullptr, 0);
        return;
    }
    m_taken += count;
    if (m_taken < m_buffer.size()) return;
    m_buffer.clear();
    m_taken = 0;
}

void curl_transfer::offer(char* into, std::size_t room) {
    m_offered = into;
    m_room = room;
    m_landed = 0;
}

std::size_t curl_transfer::give_body(char* into, std::size_t room) {
    if (!m_has_body) return CURL_READFUNC_PAUSE;
    const std::size_t count = std::min(room, m_body.size() - m_sent);
    // A shorter body than was announced: the rest never comes, and the server is waited for.
    if (count == 0) return m_sent < m_total ? CURL_READFUNC_PAUSE : 0;
    std::memcpy(into, m_body.data() + m_sent, count);
    m_sent += count;
    m_has_moved = true;
    return count;
}

std::size_t curl_transfer::on_header(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<curl_transfer*>(self);
    std::size_t taken = 0;
    transfer.m_is_out_of_memory |= !run::guarded(k_class, "a header", [&] {
        taken = transfer.take_head_line({bytes, size * count});
    });
    return taken;
}

std::size_t curl_transfer::on_body(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<curl_transfer*>(self);
    std::size_t taken = 0;
    transfer.m_is_out_of_memory |= !run::guarded(k_class, "a piece of a body", [&] {
        taken = transfer.take_body({bytes, size * count});
    });
    return taken;
}

std::size_t curl_transfer::on_read(char* into, std::size_t size, std::size_t count, void* self) {
    return static_cast<curl_transfer*>(self)->give_body(into, size * count);
}

// A connection that had been kept turned out to be closed: libcurl sends everything again.
int curl_transfer::on_seek(void* self, curl_off_t offset, int origin) {
    auto& transfer = *static_cast<curl_transfer*>(self);
    if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
    if (static_cast<std::size_t>(offset) > transfer.m_body.size()) return CURL_SEEKFUNC_FAIL;
    transfer.m_sent = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int curl_transfer::on_connected(void* self, char*, char*, int, int) {
    auto& transfer = *static_cast<curl_transfer*>(self);
    transfer.m_is_connected = true;
    transfer.m_has_moved = true;
    return CURL_PREREQFUNC_OK;
}

}  // namespace pennywort::httpclient
