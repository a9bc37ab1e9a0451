// httpserver/exchanges.cpp - how requests are read; see the header for the contract. How they are
// answered stands in exchange_answers.cpp.
#include "httpserver/exchanges.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "core/http/http_date.h"
#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver/answer.h"
#include "httpserver/request_line.h"

namespace pennywort::httpserver {
namespace {

// The server is for texts: what one read brings counts up to the first NUL.
std::uint32_t text_length(const char* bytes, std::int32_t received) {
    const void* nul = std::memchr(bytes, '\0', static_cast<std::size_t>(received));
    if (nul == nullptr) return static_cast<std::uint32_t>(received);
    return static_cast<std::uint32_t>(static_cast<const char*>(nul) - bytes);
}

void append(connection& one, const char* bytes, std::uint32_t length) {
    if (one.data == nullptr) one.data = std::make_unique<zString>();
    one.data->AddToEnd(bytes, length);
}

void empty(connection& one) {
    one.progress.reset();
    if (one.data == nullptr) return;
    if (one.data->Length() > k_max_kept_request_bytes) {
        one.data.reset();
    } else {
        one.data->SetString("", 0);
    }
}

void set(zString& target, std::string_view text) {
    if (text.empty() && target.Empty()) return;
    target.SetString(text.data(), static_cast<std::uint32_t>(text.size()));
}

}  // namespace

exchanges::exchanges(const cHttpServerSettings& settings, const run::monotonic_clock& clock,
                     handler_list& handlers, server_counts& counts, char* receive_buffer,
                     std::int32_t buffer_size)
    : m_settings(settings),
      m_clock(clock),
      m_handlers(handlers),
      m_counts(counts),
      m_receive_buffer(receive_buffer),
      m_buffer_size(buffer_size) {}

fate exchanges::serve(connection& one) {
    switch (one.at) {
        case stage::request:
            return handle_client_read(one);
        case stage::pieces:
            return send_pieces(one);
        case stage::parting:
            return discard(one);
    }
    return fate::ends;
}

void exchanges::forget(const connection& one) {
    if (one.at != stage::request) --m_timed;
}

std::int64_t exchanges::max_request_bytes() const {
    return m_settings.maxRequestBytes > 0 ? m_settings.maxRequestBytes : k_max_request_bytes;
}

fate exchanges::handle_client_read(connection& one) {
    std::int32_t received = 0;
    const zStatus status = one.socket->Receive(m_receive_buffer, m_buffer_size, &received);
    const bool is_fatal =
        status != k_ok && status != zSocket::k_not_now && status != zSocket::k_timed_out;
    if (is_fatal || (status == k_ok && received == 0)) return fate::ends;
    m_counts.bytes_received.add(received);
    if (!m_settings.isStrict) return take_text(one, received);
    return take_strict(one, {m_receive_buffer, static_cast<std::size_t>(received)});
}

// A request that came whole, as nearly all do, is served from where it was received.
fate exchanges::take_text(connection& one, std::int32_t received) {
    const std::uint32_t length = text_length(m_receive_buffer, received);
    m_receive_buffer[length] = '\0';
    const bool is_first = one.data == nullptr || one.data->Empty();
    const std::uint32_t before = is_first ? 0 : one.data->Length();
    if (std::int64_t{before} + length > max_request_bytes()) return fate::ends;
    // What can never become a request need not be kept.
    if (one.progress.is_hopeless()) return fate::stays;
    if (!is_first) append(one, m_receive_buffer, length);
    const char* const request = is_first ? m_receive_buffer : one.data->CString();
    const std::string_view text(request, before + length);
    switch (look(one, text)) {
        case reading::complete:
            return dispatch_text(one, text);
        case reading::too_long:
            return fate::ends;
        case reading::unfinished:
            break;
    }
    if (is_first && !one.progress.is_hopeless()) append(one, m_receive_buffer, length);
    return fate::stays;
}

// One that will be longer than the setting allows is too long as soon as it tells its length.
exchanges::reading exchanges::look(connection& one, std::string_view text) {
    const std::uint64_t examined = one.progress.bytes_examined();
    const bool is_complete = one.progress.look(text);
    m_counts.bytes_examined.add(
        static_cast<std::int64_t>(one.progress.bytes_examined() - examined));
    if (is_complete) return reading::complete;
    if (m_settings.maxRequestBytes <= 0) return reading::unfinished;
    const std::size_t body = one.progress.body_offset();
    const std::int64_t whole = static_cast<std::int64_t>(body) + one.progress.content_length();
    return body != 0 && whole > max_request_bytes() ? reading::too_long : reading::unfinished;
}

void exchanges::name_parts(std::string_view request) {
    const request_line line = parse_request_line(request);
    set(m_names.path, line.path);
    set(m_names.extension, line.extension);
    set(m_names.query, line.query);
}

// The memory of an uncommonly long request is not kept.
void exchanges::settle_names(std::size_t request_size) {
    if (request_size > k_max_kept_request_bytes) m_names = request_names();
}

fate exchanges::dispatch_text(connection& one, std::string_view text) {
    name_parts(text);
    m_counts.requests.add(1);
    m_view = request_view();
    m_view.socket = &one.facade;
    m_view.method = static_cast<std::int32_t>(one.progress.method());
    m_view.names = &m_names;
    m_view.text = text.data();
    m_view.size = text.size();
    m_view.body_offset = one.progress.body_offset();
    m_filter.begin_plain();
    const meeting met = offer(one);
    // The handler may have taken long, which is not the peer's fault.
    one.since = micro_now(m_clock);
    empty(one);
    settle_names(text.size());
    return finish_text(one, met);
}

// A handler may have closed the connection. No event follows, and it would stay in the list.
fate exchanges::finish_text(connection& one, meeting met) {
    if (!one.facade.IsOpen()) return fate::ends;
    const bool has_begun = m_filter.has_begun();
    if (met == meeting::failed && has_begun && !m_filter.is_complete()) return fate::ends;
    if (m_answer.whole != nullptr && one.facade.has_failed()) return fate::ends;
    if (!m_answer.is_set || (has_begun && m_answer.whole == nullptr)) return fate::stays;
    return send_answer(one);
}

void exchanges::acquire_reader(connection& one) {
    if (one.reader != nullptr) return;
    one.reader = std::move(m_spare_reader);
    if (one.reader == nullptr) one.reader = std::make_unique<strict_request>(max_request_bytes());
}

// One reader serves all connections that wait for a request, so that an idle one costs little.
void exchanges::release_reader(connection& one) {
    one.reader->reset();
    const bool is_large = one.reader->capacity() > k_max_kept_request_bytes;
    if (m_spare_reader == nullptr && !is_large) m_spare_reader = std::move(one.reader);
    one.reader.reset();
}

// Requests that came together are answered one after the other.
fate exchanges::take_strict(connection& one, std::string_view bytes) {
    while (!bytes.empty() && one.at == stage::request) {
        acquire_reader(one);
        const std::size_t used = one.reader->feed(bytes);
        m_counts.bytes_examined.add(static_cast<std::int64_t>(used));
        bytes.remove_prefix(used);
        if (one.reader->status() == strict_request::state::refused) {
            return refuse(one, one.reader->refusal());
        }
        if (one.reader->status() == strict_request::state::complete &&
            dispatch_strict(one) == fate::ends) {
            return fate::ends;
        }
    }
    if (one.at == stage::pieces) one.pending = bytes;
    return one.reader != nullptr ? continue_or_part(one) : fate::stays;
}

fate exchanges::continue_or_part(connection& one) {
    constexpr std::string_view k_continue = "HTTP/1.1 100 Continue\r\n\r\n";
    if (!one.reader->takes_continue()) return fate::stays;
    const zStatus status =
        one.facade.Send(k_continue.data(), static_cast<std::int32_t>(k_continue.size()), 0, 0);
    return status == k_ok ? fate::stays : fate::ends;
}

fate exchanges::dispatch_strict(connection& one) {
    const strict_request& request = *one.reader;
    m_counts.requests.add(1);
    name_parts(std::string("- ").append(request.resource()));
    m_view = request_view();
    m_view.socket = &one.facade;
    m_view.method = static_cast<std::int32_t>(request.method());
    m_view.names = &m_names;
    m_view.text = request.text().c_str();
    m_view.size = request.text().size();
    m_view.body_offset = request.body_offset();
    m_view.strict_head = &request.head();
    one.is_last_answer = !request.is_persistent();
    m_filter.begin_strict({request.is_head(), one.is_last_answer, date()});
    const std::size_t size = m_view.size;
    const meeting met = offer(one);
    one.since = micro_now(m_clock);
    const fate next = finish_strict(one, met);
    settle_names(size);
    if (one.reader != nullptr) release_reader(one);
    return next;
}

const std::string& exchanges::date() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t second = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    if (second != m_date_second) {
        m_date = http::date_text(second);
        m_date_second = second;
    }
    return m_date;
}

}  // namespace pennywort::httpserver
