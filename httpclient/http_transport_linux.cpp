// http_transport_linux.cpp - Linux half of http_transport.h, over libcurl's multi interface on the
// caller's thread. Windows half: http_transport_win.cpp.
//
// Redirects are followed here and not by libcurl, whose rules cannot refuse the one from https to
// http alone.
#include "httpclient/http_transport.h"

#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "core/http/proxy_rules.h"
#include "core/limits.h"
#include "httpclient/curl_transfer.h"
#include "httpclient/request_object.h"

namespace pennywort::httpclient {

namespace {

// What WinHTTP has without being told: a time-out that it refuses leaves these.
constexpr curl_patience k_usual_patience{60'000, 30'000};

class curl_transport final : public http_transport {
public:
    bool open_session(const std::string& user_agent, const proxy_choice& proxy,
                      const std::string& ca_file) override;
    bool has_session() const override { return m_has_session; }
    bool connect(const std::string& host, std::int32_t port) override;
    bool open_request(const char* verb, const std::string& object, bool is_secure) override;
    bool has_request() const override { return m_has_request; }
    void set_timeouts(std::int32_t milliseconds) override;
    bool send_headers(const std::string& headers, const void* body, std::uint32_t total) override;
    bool write_body(const void* body, std::uint32_t length) override;
    receive_result receive() override;
    void offer(char* into, std::uint32_t room) override { m_transfer.offer(into, room); }
    bool bytes_available(std::uint32_t& count) override;
    bool read(char* into, std::uint32_t size) override;
    bool query(header_query what, std::string& out) const override;
    void close_all() override;
    void cancel() override { m_transfer.cancel(); }
    std::int32_t last_error() const override { return m_error; }

private:
    // What says where to goes through here: most requests go where the one before went.
    template <typename type, typename given>
    void set(type& kept, const given& now) {
        if (kept == now) return;
        m_order.destination.clear();
        kept = now;
    }
    void locate();
    bool start();
    bool follow(redirect next);
    bool fail(std::int32_t error) {
        m_error = error;
        return false;
    }
    // What the transfer makes of it.
    bool noted(bool is_fine) { return is_fine || fail(m_transfer.fault()); }

    proxy_choice m_proxy;
    curl_order m_order;
    curl_transfer m_transfer;
    bool m_has_session = false;
    bool m_has_connection = false;
    bool m_has_request = false;
    int m_redirects = 0;
    std::int32_t m_error = 0;
};

bool curl_transport::open_session(const std::string& user_agent, const proxy_choice& proxy,
                                  const std::string& ca_file) {
    m_transfer.forget_cancel();
    if (!proxy.is_system_default && proxy.servers.empty()) return fail(k_error_bad_url);
    // What the later steps do not set anew.
    m_order.cookies.clear();
    m_order.patience = {};
    set(m_order.user_agent, user_agent);
    set(m_order.ca_file, ca_file);
    m_proxy = proxy;
    m_has_session = true;
    return true;
}

bool curl_transport::connect(const std::string& host, std::int32_t port) {
    if (!is_host(host) || port < 1 || port > 0xFFFF) return fail(k_error_bad_url);
    set(m_order.target.host, host);
    set(m_order.target.port, port);
    m_has_connection = true;
    return true;
}

bool curl_transport::open_request(const char* verb, const std::string& object, bool is_secure) {
    if (!m_has_connection) return fail(k_error_bad_url);
    m_order.verb = verb == nullptr ? "GET" : verb;
    m_order.target.object = object;
    set(m_order.target.is_secure, is_secure);
    m_has_request = true;
    return true;
}

// As WinHTTP takes them: 0 and -1 wait for ever, and what is below is refused.
void curl_transport::set_timeouts(std::int32_t milliseconds) {
    const std::int32_t bound = milliseconds > 0 ? milliseconds : 0;
    m_order.patience = milliseconds < -1 ? k_usual_patience : curl_patience{bound, bound};
}

bool curl_transport::send_headers(const std::string& headers, const void* body,
                                  std::uint32_t total) {
    if (!m_has_request) return fail(k_error_stopped);
    m_order.headers = headers;
    m_order.total = total;
    m_order.is_body_known = body != nullptr;
    m_order.body = {static_cast<const char*>(body), body == nullptr ? 0 : total};
    m_redirects = 0;
    return start() && noted(m_transfer.reach(curl_stage::connected));
}

void curl_transport::locate() {
    m_order.origin = m_order.target.origin();
    std::string all = m_order.origin;
    for (const std::string* part : {&m_order.proxy, &m_order.ca_file, &m_order.user_agent}) {
        all.append("|").append(*part);
    }
    m_order.destination = std::move(all);
}

bool curl_transport::start() {
    const request_target& to = m_order.target;
    const bool is_direct =
        m_proxy.is_system_default || http::is_bypassed(to.host, to.port, m_proxy.bypass);
    set(m_order.proxy,
        is_direct ? std::string_view() : http::proxy_server(m_proxy.servers, to.is_secure));
    if (m_order.destination.empty()) locate();
    return noted(m_transfer.start(m_order));
}

bool curl_transport::write_body(const void* body, std::uint32_t length) {
    m_transfer.send_body({static_cast<const char*>(body), length});
    // A server may answer before it has read everything; what it says counts then.
    return m_transfer.reach(curl_stage::sent) || m_transfer.has_head() || fail(m_transfer.fault());
}

receive_result curl_transport::receive() {
    bool is_fine = noted(m_transfer.reach(curl_stage::head));
    while (is_fine) {
        auto next = redirect_of(m_order.target, m_order.verb, m_order.headers, m_transfer.head());
        if (!next) break;
        is_fine = follow(std::move(*next)) && noted(m_transfer.reach(curl_stage::head));
    }
    m_transfer.keep_body();
    if (is_fine) return receive_result::response;
    return m_error == k_error_timed_out ? receive_result::timed_out : receive_result::failed;
}

// Goes on to where the response that has come points. False when that fails.
bool curl_transport::follow(redirect next) {
    if (++m_redirects > k_max_redirects) return fail(k_error_too_many_redirects);
    // Read to its end if it is short, so that its connection can be used again.
    m_transfer.drop_body();
    if (!m_transfer.reach(curl_stage::end) && m_transfer.fault() == k_error_stopped) {
        return fail(k_error_stopped);
    }
    m_order.cookies = m_transfer.take_cookies();
    m_order.destination.clear();
    m_order.target = std::move(next.target);
    m_order.verb = std::move(next.verb);
    m_order.headers = std::move(next.headers);
    if (!next.has_body) {
        m_order.total = 0;
        m_order.body = {};
    }
    if (!start()) return false;
    if (m_order.is_body_known) m_transfer.send_body(m_order.body);
    return true;
}

bool curl_transport::bytes_available(std::uint32_t& count) {
    count = 0;
    if (!m_transfer.has_head() || !noted(m_transfer.reach(curl_stage::piece))) return false;
    count = static_cast<std::uint32_t>(m_transfer.piece().size());
    return true;
}

bool curl_transport::read(char* into, std::uint32_t size) {
    const std::string_view piece = m_transfer.piece();
    if (size > piece.size()) return false;
    if (piece.data() != into) std::memcpy(into, piece.data(), size);
    m_transfer.take_piece(size);
    return true;
}

bool curl_transport::query(header_query what, std::string& out) const {
    if (!m_transfer.has_head()) return false;
    const http::header_list& headers = m_transfer.head().headers;
    std::optional<std::string_view> found = m_transfer.raw_head();
    switch (what) {
        case header_query::content_type:
            found = headers.find("Content-Type");
            break;
        case header_query::content_length:
            // A length beside a coding that shows the end by itself counts for nothing.
            found =
                headers.find("Transfer-Encoding") ? std::nullopt : headers.find("Content-Length");
            break;
        case header_query::status_code:
            out = std::to_string(m_transfer.head().status);
            return true;
        case header_query::raw_headers:
            break;
    }
    if (found) out = *found;
    return found.has_value();
}

void curl_transport::close_all() {
    m_transfer.end();
    m_has_request = false;
    m_has_connection = false;
    m_has_session = false;
    m_error = k_error_none;
}

}  // namespace

std::unique_ptr<http_transport> http_transport::make() {
    return std::make_unique<curl_transport>();
}

}  // namespace pennywort::httpclient
