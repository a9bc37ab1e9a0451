// websocket/upgrade_transport_win.cpp - Windows half of upgrade_transport.h, over WinHTTP used
// synchronously. Linux half: upgrade_transport_linux.cpp.
#include "websocket/upgrade_transport.h"

#include <windows.h>
#include <winhttp.h>

#include <array>
#include <atomic>
#include <mutex>
#include <string>
#include <utility>

#include "core/limits.h"
#include "loam/ready_mutex.h"
#include "loam/trace.h"
#include "loam/wide_text.h"
#include "websocket/fault_words.h"
#include "websocket/winhttp_words.h"

namespace pennywort::websocket {

namespace {

using loam::wide_text;

// A close has no room for a longer reason.
constexpr DWORD k_most_reason = 123;
// What WinHTTP has for itself.
constexpr DWORD k_receive_milliseconds = 30'000;

void trace(const char* call, DWORD error) {
    zTraceManager::Default()->TraceNote("cWebSocket_WinHttp: %s failed (err=%lu)\n", call, error);
}

// True, or the failure of `call` is traced.
bool checked(BOOL result, const char* call) {
    const DWORD error = ::GetLastError();
    if (result == FALSE) trace(call, error);
    return result != FALSE;
}

bool checked_code(DWORD error, const char* call) {
    if (error != NO_ERROR) trace(call, error);
    return error == NO_ERROR;
}

// Owned. Another thread may close it to end what waits in it.
class handle {
public:
    handle(HINTERNET opened, const char* call) : m_handle(opened) {
        const DWORD error = ::GetLastError();
        if (opened == nullptr) trace(call, error);
    }
    handle(const handle&) = delete;
    handle& operator=(const handle&) = delete;
    ~handle() { close(); }

    bool is_open() const { return get() != nullptr; }
    HINTERNET get() const { return m_handle.load(); }
    void close() noexcept {
        const HINTERNET closing = m_handle.exchange(nullptr);
        if (closing != nullptr) checked(::WinHttpCloseHandle(closing), "WinHttpCloseHandle");
    }

private:
    std::atomic<HINTERNET> m_handle;
};

class winhttp_socket final : public upgraded_socket {
public:
    explicit winhttp_socket(HINTERNET request, std::chrono::milliseconds closing_time);

    bool is_open() const { return m_socket.is_open(); }
    received_piece receive(std::span<char> into) override;
    bool send_text(std::string_view text) override {
        return send(WINHTTP_WEB_SOCKET_UTF8_MESSAGE_BUFFER_TYPE, text);
    }
    bool send_binary(std::string_view bytes) override {
        return send(WINHTTP_WEB_SOCKET_BINARY_MESSAGE_BUFFER_TYPE, bytes);
    }
    bool close(std::uint16_t code) override;
    close_report query_close_status() override;
    void drop() noexcept override { m_socket.close(); }
    // The one error that is told as a loss.
    std::string fault() const override { return words_of_winhttp(ERROR_WINHTTP_CONNECTION_ERROR); }

private:
    bool send(WINHTTP_WEB_SOCKET_BUFFER_TYPE type, std::string_view bytes);

    handle m_socket;
    // WinHTTP takes one message at a time.
    loam::ready_mutex m_send_mutex;
};

winhttp_socket::winhttp_socket(HINTERNET request, std::chrono::milliseconds closing_time)
    : m_socket(::WinHttpWebSocketCompleteUpgrade(request, 0), "WinHttpWebSocketCompleteUpgrade") {
    if (!is_open()) return;
    const auto bound = closing_time.count() > 0 ? closing_time : k_max_websocket_goodbye;
    auto milliseconds = static_cast<DWORD>(bound.count());
    checked(::WinHttpSetOption(m_socket.get(), WINHTTP_OPTION_WEB_SOCKET_CLOSE_TIMEOUT,
                               &milliseconds, sizeof milliseconds),
            "WinHttpSetOption (close timeout)");
}

received_piece winhttp_socket::receive(std::span<char> into) {
    DWORD size = 0;
    WINHTTP_WEB_SOCKET_BUFFER_TYPE type = WINHTTP_WEB_SOCKET_CLOSE_BUFFER_TYPE;
    const DWORD error = ::WinHttpWebSocketReceive(m_socket.get(), into.data(),
                                                  static_cast<DWORD>(into.size()), &size, &type);
    if (error == ERROR_WINHTTP_CONNECTION_ERROR) return {receive_status::connection_lost};
    if (error != NO_ERROR) return {};
    return {receive_status::ok, static_cast<piece_kind>(type), size};
}

bool winhttp_socket::send(WINHTTP_WEB_SOCKET_BUFFER_TYPE type, std::string_view bytes) {
    const std::lock_guard lock(m_send_mutex);
    // A call without bytes takes no address either.
    void* const data = bytes.empty() ? nullptr : const_cast<char*>(bytes.data());
    return checked_code(
        ::WinHttpWebSocketSend(m_socket.get(), type, data, static_cast<DWORD>(bytes.size())),
        "WinHttpWebSocketSend");
}

bool winhttp_socket::close(std::uint16_t code) {
    const bool is_closed = checked_code(::WinHttpWebSocketClose(m_socket.get(), code, nullptr, 0),
                                        "WinHttpWebSocketClose");
    // A receive that was not part of the goodbye would go on waiting.
    if (!is_closed) drop();
    return is_closed;
}

close_report winhttp_socket::query_close_status() {
    std::array<char, k_most_reason> reason{};
    USHORT code = 0;
    DWORD size = 0;
    if (!checked_code(::WinHttpWebSocketQueryCloseStatus(m_socket.get(), &code, reason.data(),
                                                         k_most_reason, &size),
                      "WinHttpWebSocketQueryCloseStatus")) {
        return {};
    }
    return {code, std::string(reason.data(), size)};
}

class winhttp_request final : public transport_request {
public:
    winhttp_request(HINTERNET connection, const std::string& path, bool is_secure,
                    const transport_settings& settings)
        : m_request(::WinHttpOpenRequest(connection, L"GET", wide_text(path).c_str(), nullptr,
                                         WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                         is_secure ? WINHTTP_FLAG_SECURE : 0),
                    "WinHttpOpenRequest"),
          m_settings(settings) {}

    bool is_open() const { return m_request.is_open(); }
    bool ask_for_upgrade() override {
        return checked(::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_UPGRADE_TO_WEB_SOCKET,
                                          nullptr, 0),
                       "WinHttpSetOption (upgrade)") &&
               add_headers();
    }
    bool send() override {
        return taken(::WinHttpSendRequest(m_request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                          WINHTTP_NO_REQUEST_DATA, 0, 0, 0),
                     "WinHttpSendRequest");
    }
    bool receive_response() override {
        return taken(::WinHttpReceiveResponse(m_request.get(), nullptr), "WinHttpReceiveResponse");
    }
    std::shared_ptr<upgraded_socket> complete_upgrade() override {
        if (!has_switched()) return nullptr;
        if (m_settings.opening_time.count() > 0) unbind_receiving();
        auto socket = std::make_shared<winhttp_socket>(m_request.get(), m_settings.closing_time);
        return socket->is_open() ? std::move(socket) : nullptr;
    }
    std::string fault() const override {
        return m_status == 0 ? words_of_winhttp(m_error)
                             : k_server_answers + std::to_string(m_status);
    }

private:
    // As checked(), and keeps the error for fault().
    bool taken(BOOL result, const char* call) {
        const DWORD error = ::GetLastError();
        if (result != FALSE) return true;
        trace(call, error);
        m_error = error;
        return false;
    }
    // The socket takes it over from the request. Without this a feed that is silent for longer than
    // the opening may take would fail.
    void unbind_receiving() {
        DWORD milliseconds = k_receive_milliseconds;
        checked(::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_RECEIVE_TIMEOUT, &milliseconds,
                                   sizeof milliseconds),
                "WinHttpSetOption (receive timeout)");
    }
    // Wine upgrades whatever the server has said.
    bool has_switched() {
        DWORD status = 0;
        DWORD size = sizeof status;
        const BOOL is_known = ::WinHttpQueryHeaders(
            m_request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
            WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
        if (!checked(is_known, "WinHttpQueryHeaders")) return false;
        if (status == HTTP_STATUS_SWITCH_PROTOCOLS) return true;
        zTraceManager::Default()->TraceNote("cWebSocket_WinHttp: no upgrade (status=%lu)\n",
                                            status);
        m_status = status;
        return false;
    }
    bool add(const std::string& line) {
        return checked(::WinHttpAddRequestHeaders(m_request.get(), wide_text(line).c_str(),
                                                  static_cast<DWORD>(-1), WINHTTP_ADDREQ_FLAG_ADD),
                       "WinHttpAddRequestHeaders");
    }
    bool add_headers() {
        for (const std::string& line : m_settings.headers) {
            if (!add(line)) return false;
        }
        return m_settings.protocols.empty() ||
               add("Sec-WebSocket-Protocol: " + m_settings.protocols);
    }

    handle m_request;
    const transport_settings& m_settings;
    DWORD m_error = NO_ERROR;
    DWORD m_status = 0;  // of an answer that is no upgrade
};

class winhttp_connection final : public transport_connection {
public:
    winhttp_connection(HINTERNET session, const std::string& host, INTERNET_PORT port,
                       const transport_settings& settings)
        : m_connection(::WinHttpConnect(session, wide_text(host).c_str(), port, 0),
                       "WinHttpConnect"),
          m_settings(settings) {}

    bool is_open() const { return m_connection.is_open(); }
    std::unique_ptr<transport_request> open_request(const std::string& path,
                                                    bool is_secure) override {
        auto request =
            std::make_unique<winhttp_request>(m_connection.get(), path, is_secure, m_settings);
        return request->is_open() ? std::move(request) : nullptr;
    }

private:
    handle m_connection;
    const transport_settings m_settings;
};

class winhttp_session final : public transport_session {
public:
    explicit winhttp_session(const transport_settings& settings)
        : m_session(::WinHttpOpen(wide_text(settings.user_agent).c_str(),
                                  WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                  WINHTTP_NO_PROXY_BYPASS, 0),
                    "WinHttpOpen"),
          m_settings(settings) {
        if (is_open() && settings.opening_time.count() > 0) bound_opening();
    }

    bool is_open() const { return m_session.is_open(); }
    std::shared_ptr<transport_connection> connect(const std::string& host,
                                                  std::int32_t port) override {
        // The port's type is a 16-bit one: another number would be cut to one that was not asked
        // for.
        if (port < 1 || port > 0xFFFF) return nullptr;
        auto connection = std::make_shared<winhttp_connection>(
            m_session.get(), host, static_cast<INTERNET_PORT>(port), m_settings);
        return connection->is_open() ? std::move(connection) : nullptr;
    }

private:
    // Each step is bounded by the time for all of them, which is as near as WinHTTP comes.
    void bound_opening() {
        const auto time = static_cast<int>(m_settings.opening_time.count());
        checked(::WinHttpSetTimeouts(m_session.get(), time, time, time, time),
                "WinHttpSetTimeouts");
    }

    handle m_session;
    const transport_settings m_settings;
};

}  // namespace

std::shared_ptr<transport_session> transport_session::open(const transport_settings& settings) {
    auto session = std::make_shared<winhttp_session>(settings);
    return session->is_open() ? std::move(session) : nullptr;
}

}  // namespace pennywort::websocket
