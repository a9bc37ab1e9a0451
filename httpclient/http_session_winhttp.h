// http_session_winhttp.h - the one implementation of cHttpSession, over the system's HTTP service.
// Its name is older than its second system.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/http/user_proxy.h"
#include "core/run/clock.h"
#include "httpclient.h"
#include "httpclient/http_transport.h"

namespace pennywort::httpclient {

class cHttpSession_winhttp final : public cHttpSession {
public:
    using proxy_reader = std::function<std::optional<http::user_proxy>()>;

    cHttpSession_winhttp();
    // Tests bring a transport, a user and a time of their own.
    cHttpSession_winhttp(std::unique_ptr<http_transport> transport, proxy_reader user_proxy,
                         const run::monotonic_clock& clock);
    ~cHttpSession_winhttp() override;

    void Configure(std::uint32_t verb, const char* url, double timeoutSeconds) override;
    bool IsConfigured() override;
    void SetAuthentication(bool enable, const char* user, const char* password) override;
    long Request_BeginWithCallback(chunk_callback callback, const zRecord* headers,
                                   const void* body, std::uint32_t length) override;
    long Request_Begin(zBuffer* sink, const zRecord* headers, const void* body,
                       std::uint32_t length) override;
    void Request_Status(float* started, float* fraction) override;
    bool Request_IsComplete() override;
    void Request_BlockForResponse() override;
    bool Request_BlockForResponseWithin(std::uint32_t limit) override;
    long Response_StatusCode(std::uint32_t* code) override;
    long Response_Headers(zRecord& headers) override;
    long Response_ContentType(zString& type) override;
    long Response_ContentLength(std::uint32_t* length) override;
    long Response_ContentLength64(std::uint64_t* length) override;
    void Request_Stop() override;
    std::uint32_t Request_ContentBytesRead() override;
    std::int64_t Request_ContentBytesRead64() override;
    void Request_End() override;
    void Reserved22() override;
    void Reserved23() override;
    zString GetURL() override;

    std::int32_t last_error() const { return m_transport->last_error(); }

private:
    // Where a request goes.
    struct target {
        std::string host;
        std::string object;
        std::int32_t port = 0;
        bool is_secure = false;
    };

    long begin(const zRecord* headers, const void* body, std::uint32_t length);
    long run(const zRecord* headers, const void* body, std::uint32_t length);
    long make_request(const proxy_choice& proxy, const zRecord* headers, const void* body,
                      std::uint32_t length);
    long attempt(const proxy_choice& proxy, const zRecord* headers, const void* body,
                 std::uint32_t length);
    long open_session(const proxy_choice& proxy);
    long connect(const target& to);
    long send(const std::string& headers, const void* body, std::uint32_t length);
    long receive();
    bool is_target_known() const;
    long know_target();
    long split_url(target& to) const;
    long header_block(const zRecord* headers, std::string& block) const;
    void add_credentials(const zRecord* headers, std::string& block) const;
    proxy_choice user_choice();
    long trace_send_failure(std::uint32_t length) const;

    bool step();
    bool end_reading();
    bool give_up();
    bool is_whole() const { return m_content_length != 0 && m_content_length == m_bytes_received; }
    bool is_too_large(std::uint32_t available);
    void offer_room();
    bool take(std::uint32_t available);
    std::unique_ptr<zBuffer> piece_of(std::uint32_t size);
    std::int64_t bytes_needed(std::uint32_t available);
    bool read(char* into, std::uint32_t available);
    bool has_grown(std::int64_t needed);
    bool read_into_sink(std::int64_t needed, std::uint32_t available);
    long know_content_length();
    bool query(header_query what, std::string& out) const;

    const proxy_reader m_user_proxy;
    const run::monotonic_clock& m_clock;
    // In this order since the session was first written down.
    std::uint32_t m_verb = 0;
    zString m_url;
    double m_timeout_seconds = 1.0;
    zBuffer* m_sink = nullptr;
    std::int64_t m_bytes_received = 0;
    std::int64_t m_content_length = 0;  // 0: not known
    std::unique_ptr<http_transport> m_transport;
    long m_last_result = k_no_request;
    bool m_is_proxy_cached = false;
    zString m_proxy;
    zString m_proxy_bypass;
    std::uint32_t m_proxy_auto_detect = 0;
    zString m_proxy_auto_config_url;
    chunk_callback m_chunk_callback;
    std::unique_ptr<zBuffer> m_piece;       // the callback's last one, whose memory serves the next
    std::atomic<bool> m_is_stopped{false};  // Request_Stop came since the request began
    // Most sessions ask for one and the same URL again: it is taken apart once.
    target m_target;
    std::string m_target_url;  // whose parts those are; empty: nobody's
    bool m_is_target_by_scheme = false;
};

}  // namespace pennywort::httpclient
