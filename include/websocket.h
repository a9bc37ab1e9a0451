// websocket.h - WebSocket clients behind one interface: cWebSocket, and its two transports. One
// works on the calling threads and a receive thread of its own (cWebSocket_WinHttp), one is
// asynchronous (cWebSocket_Sharp, which cWebSocket::Factory makes).
//
// Threads: handlers are called on the transport's threads and, for what fails inside Open and Send,
// on the caller's. None runs under a lock that another socket's operation takes. A handler may
// replace handlers and may destroy its socket, unless another thread is inside an operation of it
// other than Open. What a handler throws is traced and ends there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "loam/shared_object.h"
#include "loam/string.h"
#include "pennywort_export.h"

namespace pennywort::websocket {
class transport_connection;
class transport_session;
class upgraded_socket;
struct extras;
struct incoming_messages;
struct receive_state;
struct received_piece;
}  // namespace pennywort::websocket

// What is off unless a host asks for it. Copyable.
struct cWebSocketOptions {
    // Open gives up after its time-out; otherwise that argument is not looked at.
    bool isTimeoutHonoured = false;
    // cWebSocket_WinHttp: an upgrade that the server did not complete is ConnectFailed. Otherwise
    // such a socket opens and receives nothing.
    bool isUpgradeChecked = false;
    // Offers permessage-deflate. Not on Windows.
    bool isDeflateOffered = false;
    // cWebSocket_Sharp: how often in a row a connection that failed or ended uncleanly is opened
    // again, until Close; -1: without end, 0: never. The first wait in seconds doubles with each
    // failure up to the longest one. Each failure and each opening is told.
    std::int32_t maxReconnects = 0;
    double firstReconnectWait = 1;
    double longestReconnectWait = 60;
    // Headers of the upgrade, "Name: value" with a line end between two, and the names of
    // sub-protocols, separated by commas.
    zString headers;
    zString protocols;
    // Ceilings in bytes for a message that comes and for what waits to be sent; 0: the library's.
    std::int64_t maxMessageBytes = 0;
    std::int64_t maxWaitingBytes = 0;
    // cWebSocket_WinHttp: an address of IPv6 in brackets is a host. Otherwise the host of a URL
    // ends at its first colon, and nobody is found there.
    bool isIPv6Taken = false;
};

class PENNYWORT_API cWebSocket : public zSharedObject {
public:
    enum class Error : std::int32_t {
        None = 0,  // never signalled
        LibraryError = 1,
        ConnectFailed = 2,
        ConnectionLost = 3,
        SendFailed = 4,
        AbnormalClosure = 5
    };

    // A new socket of the asynchronous transport, without a log function. Null when memory is out.
    static std::shared_ptr<cWebSocket> Factory();

    // Copies have the handlers and options of the original.
    cWebSocket();
    cWebSocket(const cWebSocket& other);
    cWebSocket& operator=(const cWebSocket& other);
    ~cWebSocket() override;

    // Connects to a ws or wss URL. Success is told by the opened handler alone, failure by the
    // error handler alone. `timeout` is in seconds; see cWebSocketOptions::isTimeoutHonoured.
    virtual void Open(const char* url, double timeout) = 0;
    // One text message of UTF-8 up to its NUL.
    virtual void Send(const char* text) = 0;
    // Closes the connection and stops receiving.
    virtual void Close() = 0;
    virtual void SendPing() = 0;

    // Each takes the place of the handler before it, which is destroyed. To be set before Open, or
    // in a handler; not locked.
    void SetOpenedHandler(std::function<void(std::shared_ptr<cWebSocket>)> handler);
    // The text is UTF-8 with a NUL behind, valid during the call.
    void SetMessageHandler(std::function<void(const char*)> handler);
    void SetErrorHandler(std::function<void(cWebSocket::Error)> handler);
    // The flag tells whether both sides have agreed to close.
    void SetClosedHandler(std::function<void(std::optional<cWebSocket::Error>, bool)> handler);

    // Gets binary messages with their length in place of the message handler. The bytes are valid
    // during the call.
    void SetBinaryHandler(std::function<void(const void*, std::size_t)> handler);
    // Gets what the peer gave when it said goodbye first: the code, 1005 without one, and the
    // reason, which is UTF-8 and may be empty. The closed handler comes behind it, where there is
    // one to come. Not with websocket-sharp.
    void SetGoodbyeHandler(std::function<void(std::int32_t code, const char* reason)> handler);
    // Gets in words why a connection failed or was lost, and why cWebSocket_Sharp does not send:
    // one line of UTF-8, right before the error or the close that tells of it. Not called where
    // nothing is known, nor with websocket-sharp for what it does not say.
    void SetFaultHandler(std::function<void(const char* why)> handler);
    // Bytes that Send has taken and the connection has not; 0 where Send itself waits. Any thread.
    std::size_t WaitingBytes() const;
    // One binary message. A socket that is not open reports it as Send does.
    void SendBinary(const void* data, std::size_t size);
    // For the next Open. Without memory nothing changes.
    void SetOptions(const cWebSocketOptions& options);
    cWebSocketOptions Options() const;

protected:
    // The opened handler and what it gets, for a thread that cannot hold the socket meanwhile.
    struct opened_call {
        std::function<void(std::shared_ptr<cWebSocket>)> handler;
        std::shared_ptr<cWebSocket> socket;

        void operator()() const;
    };

    void SignalError(Error error);
    void SocketOpened();
    // Calls nothing without a handler, or when the socket is being destroyed.
    opened_call next_opened_call() noexcept;
    void SocketClosed(std::optional<Error> error, bool wasClean);
    void ReceiveMessage(const char* text);
    bool has_binary_handler() const;
    bool has_goodbye_handler() const;
    void SignalGoodbye(std::int32_t code, const char* reason);
    // Without words nobody is called.
    void SignalFault(const char* why);
    // True when the binary handler has taken the message.
    bool ReceiveBinary(const void* data, std::size_t size);
    // Here: SignalError(SendFailed).
    virtual void send_binary(const void* data, std::size_t size);
    // Here: 0.
    virtual std::size_t waiting_bytes() const;

private:
    std::function<void(Error)> m_error_handler;
    std::function<void(std::shared_ptr<cWebSocket>)> m_opened_handler;
    std::function<void(std::optional<Error>, bool)> m_closed_handler;
    std::function<void(const char*)> m_message_handler;
    std::shared_ptr<pennywort::websocket::extras> m_extras;
};

// The system's own WebSockets: WinHTTP on Windows, Boost.Beast on Linux. A host derives from it
// and supplies SendPing.
//
// Threads: Open and Close belong to one thread at a time. Send may be called from any thread while
// the socket is open. Messages and ConnectionLost come on the receive thread.
class PENNYWORT_API cWebSocket_WinHttp : public cWebSocket {
public:
    cWebSocket_WinHttp();
    cWebSocket_WinHttp(const cWebSocket_WinHttp&) = delete;
    cWebSocket_WinHttp& operator=(const cWebSocket_WinHttp&) = delete;
    // Closes as Close does. In a handler on the receive thread it does not wait for that thread.
    ~cWebSocket_WinHttp() override;

    // Ends an open connection, then connects and waits for the upgrade on the calling thread.
    void Open(const char* url, double timeout) override;
    // Returns when the system has taken the message; SignalError(SendFailed) otherwise.
    void Send(const char* text) override;
    // Waits for the receive thread. In a handler on that thread it throws std::system_error with
    // resource_deadlock_would_occur, and the handles stay until the next Close.
    void Close() override;

protected:
    void send_binary(const void* data, std::size_t size) override;

private:
    void start_thread();
    bool open_handles(const char* url, double timeout, std::string& why);
    void end_connection();
    void drop_handles();
    void run(pennywort::websocket::receive_state& state,
             pennywort::websocket::incoming_messages& incoming);
    void tell_goodbye(pennywort::websocket::upgraded_socket& socket);
    void tell_loss(pennywort::websocket::receive_state& state, const char* why);
    bool deliver(const pennywort::websocket::received_piece& piece, std::string_view bytes,
                 pennywort::websocket::incoming_messages& incoming);

    std::shared_ptr<pennywort::websocket::transport_session> m_session_handle;
    std::shared_ptr<pennywort::websocket::transport_connection> m_connection_handle;
    std::shared_ptr<pennywort::websocket::upgraded_socket> m_web_socket_handle;
    bool m_is_secure = false;
    std::thread m_receive_thread;
    std::shared_ptr<pennywort::websocket::receive_state> m_running;
};

// The asynchronous transport: websocket-sharp in the managed runtime, or Boost.Beast on one thread
// for all sockets (docs/websocket.md tells which).
//
// Threads: the operations may be called from any thread, one at a time, handlers included. Handlers
// come on the transport's threads. The destructor waits for a handler of this socket that runs on
// another thread.
class PENNYWORT_API cWebSocket_Sharp : public cWebSocket {
public:
    class Impl;

    // `log` gets the words of what Open failed with; it may be empty.
    explicit cWebSocket_Sharp(std::function<void(std::string)> log);
    // A copy shares the connection, whose events still go to the original as long as that lives.
    cWebSocket_Sharp(const cWebSocket_Sharp& other);
    cWebSocket_Sharp& operator=(const cWebSocket_Sharp& other);
    ~cWebSocket_Sharp() override;

    // Returns at once. A URL that cannot be used is ConnectFailed, at once and on this thread;
    // whatever fails later is an error or a close.
    void Open(const char* url, double timeout) override;
    // Without an open connection: nothing after Close, LibraryError while it is opening.
    void Send(const char* text) override;
    // Returns at once; the closed handler tells when the connection has ended.
    void Close() override;
    void SendPing() override;

protected:
    void send_binary(const void* data, std::size_t size) override;
    std::size_t waiting_bytes() const override;

private:
    void bind_events();
    void release();

    std::shared_ptr<Impl> m_impl;
    std::function<void(std::string)> m_log;
};
