// http_transport_win.cpp - Windows half of http_transport.h, over WinHTTP used synchronously. Linux
// half: http_transport_linux.cpp.
#include "httpclient/http_transport.h"

#include <windows.h>
#include <winhttp.h>

#include <atomic>
#include <utility>

#include "httpclient/winhttp_calls_win.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::httpclient {

decltype(&WinHttpReadData) winhttp_calls::read_data = &WinHttpReadData;

namespace {

using loam::utf8_text;
using loam::wide_text;

DWORD query_number(header_query what) {
    switch (what) {
        case header_query::content_type:
            return WINHTTP_QUERY_CONTENT_TYPE;
        case header_query::content_length:
            return WINHTTP_QUERY_CONTENT_LENGTH;
        case header_query::status_code:
            return WINHTTP_QUERY_STATUS_CODE;
        case header_query::raw_headers:
            break;
    }
    return WINHTTP_QUERY_RAW_HEADERS_CRLF;
}

// A handle that another thread may close to end what waits in it.
class handle {
public:
    handle() = default;
    handle(const handle&) = delete;
    handle& operator=(const handle&) = delete;
    ~handle() { close(); }

    bool is_open() const { return get() != nullptr; }
    HINTERNET get() const { return m_handle.load(); }
    bool set(HINTERNET opened) {
        close();
        m_handle = opened;
        return opened != nullptr;
    }
    void close() {
        const HINTERNET closing = m_handle.exchange(nullptr);
        if (closing == nullptr) return;
        if (::WinHttpCloseHandle(closing) == FALSE) {
            const DWORD error = ::GetLastError();
            zTraceManager::Default()->TraceNote(
                "cHttpSession_winhttp: WinHttpCloseHandle failed (err=%lu)\n", error);
        }
    }

private:
    std::atomic<HINTERNET> m_handle{nullptr};
};

class winhttp_transport final : public http_transport {
public:
    ~winhttp_transport() override { close_all(); }

    bool open_session(const std::string& user_agent, const proxy_choice& proxy,
                      const std::string& ca_file) override;
    bool has_session() const override { return m_session.is_open(); }
    bool connect(const std::string& host, std::int32_t port) override;
    bool open_request(const char* verb, const std::string& object, bool is_secure) override;
    bool has_request() const override { return m_request.is_open(); }
    void set_timeouts(std::int32_t milliseconds) override;
    bool send_headers(const std::string& headers, const void* body, std::uint32_t total) override;
    bool write_body(const void* body, std::uint32_t length) override;
    receive_result receive() override;
    // WinHTTP keeps what has come until it is read.
    void offer(char*, std::uint32_t) override {}
    bool bytes_available(std::uint32_t& count) override;
    bool read(char* into, std::uint32_t size) override;
    bool query(header_query what, std::string& out) const override;
    void close_all() override;
    void cancel() override;
    std::int32_t last_error() const override { return static_cast<std::int32_t>(m_error); }

private:
    // The error is read before anything else is called that may change it.
    bool checked(BOOL result) {
        if (result == FALSE) m_error = ::GetLastError();
        return result != FALSE;
    }
    bool opened(handle& into, HINTERNET result) {
        if (result == nullptr) m_error = ::GetLastError();
        return into.set(result);
    }
    void limit(HINTERNET handle, int milliseconds);

    handle m_session;
    handle m_connection;
    handle m_request;
    DWORD m_error = 0;
};

bool winhttp_transport::open_session(const std::string& user_agent, const proxy_choice& proxy,
                                     const std::string& ca_file) {
    // WinHTTP knows the system's store only.
    if (!ca_file.empty()) {
        m_error = ERROR_NOT_SUPPORTED;
        return false;
    }
    const std::wstring agent = wide_text(user_agent);
    if (proxy.is_system_default) {
        return opened(m_session, ::WinHttpOpen(agent.c_str(), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                               WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    }
    // WinHTTP refuses a named proxy without a name, but not everything that stands in for it does.
    if (proxy.servers.empty()) {
        m_error = ERROR_INVALID_PARAMETER;
        return false;
    }
    const std::wstring servers = wide_text(proxy.servers);
    const std::wstring bypass = wide_text(proxy.bypass);
    return opened(m_session,
                  ::WinHttpOpen(agent.c_str(), WINHTTP_ACCESS_TYPE_NAMED_PROXY, servers.c_str(),
                                bypass.empty() ? WINHTTP_NO_PROXY_BYPASS : bypass.c_str(), 0));
}

bool winhttp_transport::connect(const std::string& host, std::int32_t port) {
    // The port's type is a 16-bit one: another number would be cut to one that was not asked for.
    if (port < 1 || port > 0xFFFF) {
        m_error = ERROR_WINHTTP_INVALID_URL;
        return false;
    }
    return opened(m_connection, ::WinHttpConnect(m_session.get(), wide_text(host).c_str(),
                                                 static_cast<INTERNET_PORT>(port), 0));
}

bool winhttp_transport::open_request(const char* verb, const std::string& object, bool is_secure) {
    const std::wstring method = verb == nullptr ? std::wstring() : wide_text(verb);
    return opened(
        m_request,
        ::WinHttpOpenRequest(m_connection.get(), method.empty() ? nullptr : method.c_str(),
                             wide_text(object).c_str(), nullptr, WINHTTP_NO_REFERER,
                             WINHTTP_DEFAULT_ACCEPT_TYPES, is_secure ? WINHTTP_FLAG_SECURE : 0));
}

void winhttp_transport::limit(HINTERNET handle, int milliseconds) {
    if (handle == nullptr) return;
    if (::WinHttpSetTimeouts(handle, milliseconds, milliseconds, milliseconds, milliseconds) ==
        FALSE) {
        // No failure of the request: it goes on with WinHTTP's own.
        const DWORD error = ::GetLastError();
        zTraceManager::Default()->TraceNote(
            "cHttpSession_winhttp: WinHttpSetTimeouts of %d ms failed (err=%lu)\n", milliseconds,
            error);
    }
}

void winhttp_transport::set_timeouts(std::int32_t milliseconds) {
    limit(m_session.get(), milliseconds);
    limit(m_request.get(), milliseconds);
}

bool winhttp_transport::send_headers(const std::string& headers, const void*, std::uint32_t total) {
    const std::wstring block = wide_text(headers);
    return checked(::WinHttpSendRequest(
        m_request.get(), block.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : block.c_str(),
        block.empty() ? 0 : static_cast<DWORD>(-1), WINHTTP_NO_REQUEST_DATA, 0, total, 0));
}

bool winhttp_transport::write_body(const void* body, std::uint32_t length) {
    DWORD written = 0;
    return checked(::WinHttpWriteData(m_request.get(), body, length, &written));
}

receive_result winhttp_transport::receive() {
    if (checked(::WinHttpReceiveResponse(m_request.get(), nullptr))) {
        return receive_result::response;
    }
    return m_error == ERROR_WINHTTP_TIMEOUT ? receive_result::timed_out : receive_result::failed;
}

bool winhttp_transport::bytes_available(std::uint32_t& count) {
    DWORD available = 0;
    count = 0;
    if (!checked(::WinHttpQueryDataAvailable(m_request.get(), &available))) return false;
    count = available;
    return true;
}

bool winhttp_transport::read(char* into, std::uint32_t size) {
    // What was announced counts as read, however much of it the system says has come.
    DWORD received = 0;
    return checked(winhttp_calls::read_data(m_request.get(), into, size, &received));
}

bool winhttp_transport::query(header_query what, std::string& out) const {
    const DWORD number = query_number(what);
    DWORD size = 0;
    ::WinHttpQueryHeaders(m_request.get(), number, WINHTTP_HEADER_NAME_BY_INDEX,
                          WINHTTP_NO_OUTPUT_BUFFER, &size, WINHTTP_NO_HEADER_INDEX);
    if (size == 0) return false;
    std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
    if (::WinHttpQueryHeaders(m_request.get(), number, WINHTTP_HEADER_NAME_BY_INDEX, text.data(),
                              &size, WINHTTP_NO_HEADER_INDEX) == FALSE) {
        return false;
    }
    text.resize(size / sizeof(wchar_t));
    out = utf8_text(text);
    return true;
}

void winhttp_transport::close_all() {
    m_request.close();
    m_connection.close();
    m_session.close();
    m_error = 0;
}

// Closing the request ends what waits in it; each later step finds none. A synchronous handle has
// no other way.
void winhttp_transport::cancel() { m_request.close(); }

}  // namespace

std::unique_ptr<http_transport> http_transport::make() {
    return std::make_unique<winhttp_transport>();
}

}  // namespace pennywort::httpclient
