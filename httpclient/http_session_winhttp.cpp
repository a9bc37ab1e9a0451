// http_session_winhttp.cpp - see the header for the contract. The steps of a request stand in
// http_transport.h; here is their order, what each failure is called, and the reading of the body.
#include "httpclient/http_session_winhttp.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "core/text/ascii.h"
#include "httpclient/header_lines.h"
#include "httpclient/request_object.h"
#include "loam/base64.h"
#include "loam/trace.h"
#include "loam/url_string.h"

namespace pennywort::httpclient {

namespace {

constexpr std::int32_t k_http_port = 80;
constexpr std::int32_t k_https_port = 443;

// Null: the service takes it as GET.
const char* verb_text(std::uint32_t verb) {
    switch (verb) {
        case cHttpSession::k_get:
            return "GET";
        case cHttpSession::k_post:
            return "POST";
        case cHttpSession::k_put:
            return "PUT";
        case cHttpSession::k_patch:
            return "PATCH";
        case cHttpSession::k_delete:
            return "DELETE";
        default:
            return nullptr;
    }
}

// Cut to whole milliseconds; what the type cannot hold becomes the nearest that it can.
std::int32_t milliseconds(double seconds) {
    const double wanted = seconds * 1000.0;
    if (std::isnan(wanted)) return 0;
    constexpr double k_most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(wanted, -k_most, k_most));
}

bool has_header(const zRecord* headers, const char* name) {
    for (std::uint32_t i = 0; headers != nullptr && i < headers->VariableCount(); ++i) {
        if (text::equal_ignoring_case(headers->VariableName(i), name)) return true;
    }
    return false;
}

std::string basic_credentials(const zString& user, const zString& password) {
    const std::string plain = std::string(user.View()) + ":" + std::string(password.View());
    const auto length = static_cast<int>(plain.size());
    std::string encoded(static_cast<std::size_t>(std::max(Base64encode_len(length), 1)), '\0');
    Base64encode(encoded.data(), plain.data(), length);
    encoded.resize(std::strlen(encoded.c_str()));
    return encoded;
}

}  // namespace

cHttpSession_winhttp::cHttpSession_winhttp()
    : cHttpSession_winhttp(http_transport::make(), &http::read_user_proxy,
                           run::monotonic_clock::system()) {}

cHttpSession_winhttp::cHttpSession_winhttp(std::unique_ptr<http_transport> transport,
                                           proxy_reader user_proxy,
                                           const run::monotonic_clock& clock)
    : m_user_proxy(std::move(user_proxy)), m_clock(clock), m_transport(std::move(transport)) {}

cHttpSession_winhttp::~cHttpSession_winhttp() { m_transport->close_all(); }

void cHttpSession_winhttp::Configure(std::uint32_t verb, const char* url, double timeoutSeconds) {
    m_verb = verb;
    m_url = url;
    m_timeout_seconds = timeoutSeconds;
}

bool cHttpSession_winhttp::IsConfigured() { return m_verb != 0; }

void cHttpSession_winhttp::SetAuthentication(bool, const char*, const char*) {}

long cHttpSession_winhttp::Request_BeginWithCallback(chunk_callback callback,
                                                     const zRecord* headers, const void* body,
                                                     std::uint32_t length) {
    m_chunk_callback = std::exchange(callback, nullptr);
    return begin(headers, body, length);
}

long cHttpSession_winhttp::Request_Begin(zBuffer* sink, const zRecord* headers, const void* body,
                                         std::uint32_t length) {
    m_sink = sink;
    return begin(headers, body, length);
}

long cHttpSession_winhttp::begin(const zRecord* headers, const void* body, std::uint32_t length) {
    m_is_stopped = false;
    const long result = run::guarded_or<long>(k_failed, "cHttpSession_winhttp", "a request",
                                              [&] { return run(headers, body, length); });
    if (result != k_ok) m_sink = nullptr;
    return result;
}

// Whatever the first attempt failed for, the second one leaves the user's proxy out.
long cHttpSession_winhttp::run(const zRecord* headers, const void* body, std::uint32_t length) {
    m_bytes_received = 0;
    m_content_length = 0;
    // Nobody is asked for the way to where nothing is.
    const long url_result = is_target_known() ? k_ok : ValidateURL(std::string(m_url.View()));
    if (url_result != k_ok) return url_result;
    const proxy_choice user = user_choice();
    // A named proxy without a name opens no session: what would come of it is known beforehand.
    const bool is_hopeless = !user.is_system_default && user.servers.empty();
    const long result =
        is_hopeless ? cHttpSession::k_session_failed : attempt(user, headers, body, length);
    if (result == k_ok || result == k_stopped) return result;
    return attempt(proxy_choice{}, headers, body, length);
}

// Whatever failed because the request was stopped failed for that reason alone.
long cHttpSession_winhttp::attempt(const proxy_choice& proxy, const zRecord* headers,
                                   const void* body, std::uint32_t length) {
    const long result = make_request(proxy, headers, body, length);
    if (result == k_ok || !m_is_stopped) return result;
    m_last_result = k_stopped;
    return k_stopped;
}

long cHttpSession_winhttp::make_request(const proxy_choice& proxy, const zRecord* headers,
                                        const void* body, std::uint32_t length) {
    // The response before this request is gone, whatever becomes of the request.
    m_transport->close_all();
    m_last_result = know_target();
    if (m_last_result != k_ok) return m_last_result;
    const target& to = m_target;
    if (const long result = open_session(proxy); result != k_ok) return result;
    // A stop from before that has been forgotten by the session that is open now.
    if (m_is_stopped) return k_stopped;
    if (const long result = connect(to); result != k_ok) return result;
    if (!m_transport->open_request(verb_text(m_verb), to.object, to.is_secure)) return k_not_opened;
    // One from before that has found no request that it could have ended.
    if (m_is_stopped) return k_stopped;
    m_transport->set_timeouts(milliseconds(m_timeout_seconds));
    std::string block;
    if (const long result = header_block(headers, block); result != k_ok) return result;
    const long result = send(block, body, length);
    return result == k_ok ? receive() : result;
}

bool cHttpSession_winhttp::is_target_known() const {
    return m_target_url == m_url.View() && m_is_target_by_scheme == settings().tlsByScheme &&
           !m_target_url.empty();
}

long cHttpSession_winhttp::know_target() {
    if (is_target_known()) return k_ok;
    m_target_url.clear();
    m_is_target_by_scheme = settings().tlsByScheme;
    const long result = split_url(m_target);
    if (result == k_ok) m_target_url = m_url.View();
    return result;
}

long cHttpSession_winhttp::split_url(target& to) const {
    zString scheme;
    zString host;
    zString path;
    const zStatus status =
        zURLString::Get(m_url.CString(), &scheme, nullptr, &host, &to.port, &path, nullptr);
    // A URL of the right form whose host or port cannot be had: no connection can be made to it.
    if (status != k_ok || !is_host(host.View())) return k_connect_failed;
    const bool is_https = std::strncmp(m_url.CString(), "https://", 8) == 0;
    if (to.port <= 0) to.port = is_https ? k_https_port : k_http_port;
    to.is_secure = to.port == k_https_port;
    if (settings().tlsByScheme) to.is_secure = text::equal_ignoring_case(scheme.View(), "https");
    to.host = std::string(host.View());
    to.object = escaped_object("/" + std::string(path.View()));
    return k_ok;
}

// What the user has set is asked for once in a session's life: the answer can take a while.
proxy_choice cHttpSession_winhttp::user_choice() {
    if (!m_is_proxy_cached) {
        if (const std::optional<http::user_proxy> user = m_user_proxy()) {
            m_proxy = user->servers;
            m_proxy_bypass = user->bypass;
            m_proxy_auto_detect = user->is_auto_detected ? 1 : 0;
            m_proxy_auto_config_url = user->auto_config_url;
            m_is_proxy_cached = true;
        }
    }
    if (!m_is_proxy_cached) return {false, {}, {}};
    const bool is_automatic = m_proxy_auto_detect != 0 || !m_proxy_auto_config_url.Empty();
    return {is_automatic, std::string(m_proxy.View()), std::string(m_proxy_bypass.View())};
}

long cHttpSession_winhttp::open_session(const proxy_choice& proxy) {
    const std::string ca_file(settings().caFile.View());
    static const std::string user_agent = "Nimb Software Client";
    m_last_result = m_transport->open_session(user_agent, proxy, ca_file) ? k_ok : k_session_failed;
    return m_last_result;
}

long cHttpSession_winhttp::connect(const target& to) {
    if (!m_transport->has_session()) {
        m_last_result = k_no_session;
    } else {
        m_last_result = m_transport->connect(to.host, to.port) ? k_ok : k_connect_failed;
    }
    return m_last_result;
}

long cHttpSession_winhttp::header_block(const zRecord* headers, std::string& block) const {
    for (std::uint32_t i = 0; headers != nullptr && i < headers->VariableCount(); ++i) {
        const char* const name = headers->VariableName(i);
        if (*name == '\0') continue;
        if (!HeaderNameIsValid(name)) return k_bad_header_name;
        char scratch[64];
        const char* const value = headers->AsCString(name, nullptr, &scratch);
        if (value == nullptr) continue;
        // It would begin a header of its own.
        if (std::strpbrk(name, "\r\n") != nullptr || std::strpbrk(value, "\r\n") != nullptr) {
            zTraceManager::Default()->TraceNote(
                "cHttpSession_winhttp: header %lu holds a line end and is not sent\n",
                static_cast<unsigned long>(i));
            return k_send_failed;
        }
        block.append(name).append(": ").append(value).append("\r\n");
    }
    add_credentials(headers, block);
    return k_ok;
}

void cHttpSession_winhttp::add_credentials(const zRecord* headers, std::string& block) const {
    if (!settings().sendBasicAuthentication || m_use_basic_authentication == 0) return;
    if (has_header(headers, "Authorization")) return;
    block += "Authorization: Basic " + basic_credentials(m_user_name, m_password) + "\r\n";
}

long cHttpSession_winhttp::send(const std::string& headers, const void* body,
                                std::uint32_t length) {
    if (!m_transport->send_headers(headers, body, length)) return trace_send_failure(length);
    if (body != nullptr && !m_transport->write_body(body, length)) return k_write_failed;
    return k_ok;
}

long cHttpSession_winhttp::trace_send_failure(std::uint32_t length) const {
    zTraceManager::Default()->TraceNote(
        "cHttpSession_winhttp::MakeRequest: WinHttpSendRequest - failed (err=%ld, len=%ld, "
        "url=%s)\n",
        static_cast<long>(m_transport->last_error()), static_cast<long>(length), m_url.CString());
    return k_send_failed;
}

long cHttpSession_winhttp::receive() {
    switch (m_transport->receive()) {
        case receive_result::response:
            return k_ok;
        case receive_result::timed_out:
            return k_timed_out;
        case receive_result::failed:
            break;
    }
    return k_receive_failed;
}

void cHttpSession_winhttp::Request_Status(float* started, float* fraction) {
    if (started != nullptr) *started = m_content_length < 1 ? 0.0F : 1.0F;
    if (fraction == nullptr) return;
    *fraction = m_content_length <= 0 ? 0.0F
                                      : static_cast<float>(static_cast<double>(m_bytes_received) /
                                                           static_cast<double>(m_content_length));
}

bool cHttpSession_winhttp::Request_IsComplete() {
    bool is_over = true;
    const bool is_done =
        run::guarded("cHttpSession_winhttp", "a response", [&] { is_over = step(); });
    return is_done ? is_over : give_up();
}

// For want of memory of our own. Without a length nothing else tells that the body is not whole.
bool cHttpSession_winhttp::give_up() {
    if (m_content_length == 0) m_last_result = k_failed;
    return true;
}

bool cHttpSession_winhttp::step() {
    if (m_sink == nullptr && !m_chunk_callback) return true;
    if (is_whole()) return true;
    offer_room();
    std::uint32_t available = 0;
    if (!m_transport->bytes_available(available)) return end_reading();
    if (available == 0) {
        m_last_result = k_ok;
        return true;
    }
    if (is_too_large(available)) {
        m_last_result = k_too_large;
        return true;
    }
    return !take(available) || is_whole();
}

// What came so far stays, and no code tells of the rest, unless somebody has asked for the end or
// wants to know. A body that is shorter than announced has a code anyhow.
bool cHttpSession_winhttp::end_reading() {
    if (m_is_stopped) {
        m_last_result = k_stopped;
    } else if (m_transport->last_error() == k_error_no_memory) {
        return give_up();
    } else if (settings().tellBrokenBody) {
        if (m_transport->last_error() == k_error_timed_out) {
            m_last_result = k_timed_out;
        } else if (m_content_length == 0) {
            m_last_result = k_receive_failed;
        }
    }
    return true;
}

bool cHttpSession_winhttp::is_too_large(std::uint32_t available) {
    const std::int64_t most = settings().maxResponseBytes;
    if (most <= 0) return false;
    return bytes_needed(available) > most;
}

// Where the next bytes will be read to, if that is certain: with the length known, nothing grows
// any more and no ceiling ends the reading between the two.
void cHttpSession_winhttp::offer_room() {
    m_transport->offer(nullptr, 0);
    const std::int64_t left = m_content_length - m_bytes_received;
    if (m_content_length <= 0 || left <= 0) return;
    if (m_sink == nullptr) {
        m_piece = piece_of(k_read_bytes);
        m_transport->offer(m_piece->Data(), m_piece->Length());
    } else if (m_sink->Length() >= m_content_length) {
        m_transport->offer(m_sink->Data() + m_bytes_received, static_cast<std::uint32_t>(left));
    }
}

std::unique_ptr<zBuffer> cHttpSession_winhttp::piece_of(std::uint32_t size) {
    auto piece = std::exchange(m_piece, nullptr);
    const bool is_fine = piece != nullptr && piece->ResizeTo(size, size) == k_ok;
    return is_fine ? std::move(piece) : std::make_unique<zBuffer>(size, 0);
}

// Whether reading goes on.
bool cHttpSession_winhttp::take(std::uint32_t available) {
    const std::int64_t needed = bytes_needed(available);
    // The callback may begin another request, which has a piece of its own.
    auto chunk = m_chunk_callback ? piece_of(m_sink == nullptr ? available : 0) : nullptr;
    const bool is_read =
        m_sink != nullptr ? read_into_sink(needed, available) : read(chunk->Data(), available);
    if (!is_read) return false;
    m_bytes_received += available;
    // What it throws ends the reading as its own false does.
    const bool goes_on =
        !m_chunk_callback || run::guarded_or(false, "cHttpSession_winhttp", "a chunk callback",
                                             [&] { return m_chunk_callback(*chunk); });
    m_piece = std::move(chunk);
    return goes_on;
}

// The whole length at once, as soon as it is known: a sink that grows in steps is copied again and
// again. Progress and completeness need it too, with or without a sink.
std::int64_t cHttpSession_winhttp::bytes_needed(std::uint32_t available) {
    const std::int64_t needed = m_bytes_received + available;
    return know_content_length() == k_ok ? std::max(needed, m_content_length) : needed;
}

bool cHttpSession_winhttp::read(char* into, std::uint32_t available) {
    return m_transport->read(into, available) || !end_reading();
}

// A sink counts its bytes in 32 bits.
bool cHttpSession_winhttp::has_grown(std::int64_t needed) {
    if (needed <= m_sink->Length()) return true;
    return needed <= std::numeric_limits<std::uint32_t>::max() &&
           m_sink->ResizeTo(static_cast<std::uint32_t>(needed), m_sink->Length()) == k_ok;
}

bool cHttpSession_winhttp::read_into_sink(std::int64_t needed, std::uint32_t available) {
    if (has_grown(needed)) return read(m_sink->Data() + m_bytes_received, available);
    zTraceManager::Default()->TraceNote(
        "cHttpSession_winhttp: no memory for a response of %lld bytes\n",
        static_cast<long long>(needed));
    return !give_up();
}

void cHttpSession_winhttp::Request_BlockForResponse() {
    while (!Request_IsComplete()) {
    }
}

bool cHttpSession_winhttp::Request_BlockForResponseWithin(std::uint32_t limit) {
    const auto end = m_clock.now() + std::chrono::microseconds(limit);
    while (!Request_IsComplete()) {
        if (m_clock.now() > end) return false;
    }
    return true;
}

long cHttpSession_winhttp::Response_StatusCode(std::uint32_t* code) {
    if (code != nullptr) *code = 0;
    if (m_last_result != k_ok) return m_last_result;
    if (m_content_length != 0 && m_content_length != m_bytes_received) return k_incomplete;
    std::string text;
    // A stop may take the whole response with it.
    if (!query(header_query::status_code, text)) return m_is_stopped ? k_stopped : k_failed;
    const std::int32_t status = zString(text).AsInt32();
    if (code != nullptr) *code = static_cast<std::uint32_t>(status);
    if (status >= 200 && status <= 299) return k_ok;
    return status < 999 ? -29000L - status : -29999L;
}

long cHttpSession_winhttp::Response_Headers(zRecord& headers) {
    std::string lines;
    if (!query(header_query::raw_headers, lines) || lines.empty()) return k_failed;
    const bool is_stored = run::guarded("cHttpSession_winhttp", "the headers", [&] {
        store_header_lines(lines, settings().keepRepeatedHeaders, headers);
    });
    return is_stored ? k_ok : k_failed;
}

long cHttpSession_winhttp::Response_ContentType(zString& type) {
    std::string text;
    if (!query(header_query::content_type, text)) return k_failed;
    type = std::move(text);
    return k_ok;
}

long cHttpSession_winhttp::Response_ContentLength(std::uint32_t* length) {
    std::uint64_t whole = 0;
    const long result = Response_ContentLength64(&whole);
    if (result == k_ok && length != nullptr) *length = static_cast<std::uint32_t>(whole);
    return result;
}

long cHttpSession_winhttp::Response_ContentLength64(std::uint64_t* length) {
    const long result = know_content_length();
    if (result == k_ok && length != nullptr) *length = static_cast<std::uint64_t>(m_content_length);
    return result;
}

long cHttpSession_winhttp::know_content_length() {
    if (m_content_length != 0) return k_ok;
    std::string text;
    if (!query(header_query::content_length, text)) return k_failed;
    m_content_length = zString(text).AsInt64();
    return k_ok;
}

bool cHttpSession_winhttp::query(header_query what, std::string& out) const {
    return run::guarded_or(false, "cHttpSession_winhttp", "a header", [&] {
        return m_transport->has_request() && m_transport->query(what, out);
    });
}

void cHttpSession_winhttp::Request_Stop() {
    if (!settings().stopFromAnyThread) return;
    m_is_stopped = true;
    m_transport->cancel();
}

std::uint32_t cHttpSession_winhttp::Request_ContentBytesRead() {
    return static_cast<std::uint32_t>(m_bytes_received);
}

std::int64_t cHttpSession_winhttp::Request_ContentBytesRead64() { return m_bytes_received; }

void cHttpSession_winhttp::Request_End() { m_sink = nullptr; }

void cHttpSession_winhttp::Reserved22() {}

void cHttpSession_winhttp::Reserved23() {}

zString cHttpSession_winhttp::GetURL() { return m_url; }

}  // namespace pennywort::httpclient
