// http_transport.h - the steps of an HTTP request, as one system's HTTP service takes them:
// http_transport_win.cpp over WinHTTP, http_transport_linux.cpp over libcurl.
//
// Threads: one at a time, but for cancel. A step that waits does so for the configured time-outs at
// most. Nothing throws but the allocation of memory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace pennywort::httpclient {

// Bytes that are read of a connection at once. From 64 KiB on the allocator tidies up whenever such
// a buffer is given back.
inline constexpr std::uint32_t k_read_bytes = 32 * 1024;

// Where a session takes its proxy from.
struct proxy_choice {
    // The system's own configuration; `servers` and `bypass` are not looked at then.
    bool is_system_default = true;
    std::string servers;
    std::string bypass;
};

enum class receive_result { response, timed_out, failed };

enum class header_query { content_type, content_length, status_code, raw_headers };

class http_transport {
public:
    // The system's own.
    static std::unique_ptr<http_transport> make();
    virtual ~http_transport() = default;

    // The steps in their order. Each is false when the system refuses it. A session needs a proxy
    // by name or the system's configuration: a named one without a name cannot be opened. With
    // `ca_file` certificates are checked against that file instead of the system's.
    virtual bool open_session(const std::string& user_agent, const proxy_choice& proxy,
                              const std::string& ca_file) = 0;
    virtual bool has_session() const = 0;
    virtual bool connect(const std::string& host, std::int32_t port) = 0;
    // `verb` null: GET. `object` begins with "/" and holds what may stand in a request alone.
    virtual bool open_request(const char* verb, const std::string& object, bool is_secure) = 0;
    virtual bool has_request() const = 0;
    // For each wait of its own; 0: for ever.
    virtual void set_timeouts(std::int32_t milliseconds) = 0;
    // `headers` is a block of lines with CR LF, `total` the length of the body that is announced,
    // `body` what write_body will bring, or null if it will not be called: a service may put a
    // short one into one packet with the headers. It must last until `receive` has returned.
    virtual bool send_headers(const std::string& headers, const void* body,
                              std::uint32_t total) = 0;
    virtual bool write_body(const void* body, std::uint32_t length) = 0;
    // Waits for the head of the final response; redirects are followed within.
    virtual receive_result receive() = 0;
    // Memory for the bytes of the next bytes_available, where `read` will want them: a service may
    // put them there at once. It lasts until they have been read, or the next offer.
    virtual void offer(char* into, std::uint32_t room) = 0;
    // Waits for bytes of the body; 0 of them at its end.
    virtual bool bytes_available(std::uint32_t& count) = 0;
    // `size` at most what bytes_available told.
    virtual bool read(char* into, std::uint32_t size) = 0;
    // False when the response has no such header. UTF-8.
    virtual bool query(header_query what, std::string& out) const = 0;

    // The request, then the connection, then the session. Harmless when nothing is open.
    virtual void close_all() = 0;
    // Ends the step that another thread is in, and fails every later one until open_session. From
    // any thread.
    virtual void cancel() = 0;
    // Why the last step that failed since close_all did, in the numbers of WinHTTP on both systems;
    // 0 when none has.
    virtual std::int32_t last_error() const = 0;
};

}  // namespace pennywort::httpclient
