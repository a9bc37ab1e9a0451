// httpserver.h - a small HTTP server inside a host: cHttpServer, the handlers that answer its
// requests, and some that are ready to be installed.
//
// Threads: each server has one thread, "http server thread", that does all its work and calls the
// handlers, one request at a time. A handler that waits keeps every other connection waiting.
// Whatever else may be called from any thread says so.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "loam/heap.h"
#include "loam/ref_count.h"
#include "loam/socket.h"
#include "loam/string.h"
#include "loam/thread.h"
#include "loam/types.h"
#include "pennywort_export.h"

namespace pennywort::httpserver {
struct answer_parts;
class connection_list;
class handler_list;
class request_view;
class server_loop;
}  // namespace pennywort::httpserver

// The body of an answer that is sent bit by bit, as the peer takes it, while the server serves
// others. Called on the server thread, and destroyed there or with the server. It may stop and
// delete its server, as a handler may.
class PENNYWORT_API cHttpBody {
public:
    cHttpBody() = default;
    cHttpBody(const cHttpBody&) = delete;
    cHttpBody& operator=(const cHttpBody&) = delete;
    virtual ~cHttpBody();
    // In bytes.
    virtual std::int64_t Size() = 0;
    // Writes at most `size` bytes of the body, from `offset` on, and returns how many; 0 or less
    // ends the connection. Bytes that did not go out are asked for again.
    virtual std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) = 0;
};

// A request as a handler sees it, valid during the handler's call. What it returns points into the
// request.
class PENNYWORT_API cHttpRequest {
public:
    explicit cHttpRequest(pennywort::httpserver::request_view& view) : m_view(view) {}
    cHttpRequest(const cHttpRequest&) = delete;
    cHttpRequest& operator=(const cHttpRequest&) = delete;

    // Four characters, cHttpHandler::k_get for instance. HEAD is k_get: a strict server sends the
    // head of the response and keeps its body.
    std::int32_t Method() const;
    // The word itself, "HEAD" for instance.
    std::string_view MethodName() const;
    // Without the query, and not decoded.
    const zString& Path() const;
    // What follows the last "." of the path.
    const zString& Extension() const;
    // Without its "?".
    const zString& Query() const;

    std::int32_t HeaderCount() const;
    // In the order in which they came; empty when the index is out of range.
    std::string_view HeaderName(std::int32_t index) const;
    std::string_view HeaderValue(std::int32_t index) const;
    // Whether there is a header of that name, whatever the case of its letters.
    bool HasHeader(const char* name) const;
    // The value of the first header of that name; empty without one.
    std::string_view Header(const char* name) const;

    // What follows the blank line, without a chunked coding. A strict server gives all of it, any
    // other one gives it up to a NUL.
    std::string_view Body() const;
    // Head and body, with a NUL behind.
    const char* Text() const;
    // Whether the server follows RFC 9110 and 9112 (cHttpServerSettings::isStrict).
    bool IsStrict() const;
    // The connection, for a handler that writes its response itself.
    zSocket* Socket() const;

private:
    pennywort::httpserver::request_view& m_view;
};

// A response that the server sends for a handler, bit by bit as the peer takes it. Headers and text
// that cannot be had for want of memory end the connection.
class PENNYWORT_API cHttpAnswer {
public:
    explicit cHttpAnswer(pennywort::httpserver::answer_parts& parts) : m_parts(parts) {}
    cHttpAnswer(const cHttpAnswer&) = delete;
    cHttpAnswer& operator=(const cHttpAnswer&) = delete;

    // 200 unless this is called. A status that has no body (204, 304) is sent without one, and in
    // place of one below 200 or above 999 a 500.
    void SetStatus(std::int32_t status);
    // Sets a header in place of all of its name, or adds one. The server writes Connection,
    // Content-Length, Date and Server itself and passes over others of these names. -1, with
    // nothing changed, for a name that is no token and for a value with a control byte.
    zStatus SetHeader(const char* name, const char* value);
    zStatus AddHeader(const char* name, const char* value);
    // The body and its Content-Type. The text is copied.
    void SetText(const char* contentType, std::string_view text);
    // The same without a copy; null is an empty body.
    void SetShared(const char* contentType, std::shared_ptr<const std::string> text);
    // The server asks for the bytes when the peer takes them; null is an empty body.
    void SetBody(const char* contentType, std::unique_ptr<cHttpBody> body);
    // A response that begins with its own head: all of it, as it is to be sent.
    void SetWhole(std::unique_ptr<cHttpBody> answer);
    // Ends the connection behind this response.
    void CloseAfter();
    // The connection is worth keeping: see cHttpServerSettings::dropUntrustedWhenFull.
    void SetTrusted();

private:
    pennywort::httpserver::answer_parts& m_parts;
};

// Answers requests. Counted: whoever calls `new` holds the first reference, a server one more.
// The strings and texts that a handler gets are valid during the call.
class PENNYWORT_API cHttpHandler : public zRefCount {
public:
    // Methods: four characters, the first in the highest byte.
    static constexpr std::int32_t k_get = 0x47455420;   // "GET "
    static constexpr std::int32_t k_post = 0x504F5354;  // "POST"
    static constexpr std::int32_t k_put = 0x50555420;   // "PUT "

    // Writes the whole response to `socket`, whose owner is the server. `body` is what follows the
    // blank line, up to a NUL. A handler that fails, by a status or by throwing, when it has sent
    // only a part of a response ends the connection: the peer would read the next response as the
    // rest of this one. Here: -1, and nothing is sent.
    virtual zStatus Handle(zSocket* socket, std::int32_t method, const zString& path,
                           const zString& extension, const zString& query, const char* body);
    // Whether this handler answers the request. `path` has no query, `query` no "?"; `extension` is
    // what follows the last "." of the path. Nothing is decoded. `request` is the whole request.
    // Here: false.
    virtual bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                           const zString& query, const char* request);
    // The server calls this. An override may write the headers only and return the body, which the
    // server then sends bit by bit, or return both in one: then nothing waits for a peer that takes
    // nothing. Here: calls Handle and returns null.
    virtual std::unique_ptr<cHttpBody> HandleInPieces(zSocket* socket, std::int32_t method,
                                                      const zString& path, const zString& extension,
                                                      const zString& query, const char* body,
                                                      zStatus& status);
    // The same questions with the whole request at hand, which is what the server calls. An
    // override of HandleRequest may fill in `answer`, or write to request.Socket() as Handle does.
    // A strict server may ask whether a handler can for another method too, to tell which ones are
    // allowed. Here: CanHandle and HandleInPieces.
    virtual bool CanHandleRequest(const cHttpRequest& request);
    virtual zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer);

    // "Server: nimb_httpd/0.1.0" with its CR LF.
    static const char* ServerString();
    // Sends the text up to its NUL, nothing for null. Waits at most 5 s for the peer and returns
    // the socket's status, zSocket::k_timed_out then.
    static zStatus SendString(zSocket* socket, const char* data);
    // Sends the head of a successful answer whose body of `contentLength` bytes the caller sends
    // next. The system may hold the head for at most 200 ms, so that both leave together. Closes
    // the socket if the head does not go: a body without it would be taken for anything. A byte in
    // `contentType` that would end the line becomes a blank.
    static void SendHeaders(zSocket* socket, std::int32_t contentLength, const char* contentType);
    // Sends a page that says "Not Found", as a successful answer: hosts' clients rely on the 200.
    // cHttpNotFoundHandler sends a real 404.
    static void Send404(zSocket* socket);

    // Any bytes; otherwise as SendString.
    static zStatus SendBytes(zSocket* socket, const char* data, std::int64_t length);
    // A whole response, in one piece if it is short: `status` such as 200 or 404, the headers of
    // SendHeaders, the body. One without a body (204, 304) gets no length either. This is the
    // quickest way to answer.
    static zStatus SendAnswer(zSocket* socket, std::int32_t status, const char* contentType,
                              const char* data, std::int64_t length);

protected:
    ~cHttpHandler() override;
};

// Answers GET of one path with a fixed text.
class PENNYWORT_API cHttpTextHandler : public cHttpHandler {
public:
    cHttpTextHandler(const zString& path, const zString& contentType, const zString& text);
    zStatus Handle(zSocket* socket, std::int32_t method, const zString& path,
                   const zString& extension, const zString& query, const char* body) override;
    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;

protected:
    ~cHttpTextHandler() override;

private:
    zString m_path;
    zString m_content_type;
    zString m_text;
};

// Answers GET with the files of a folder, and "index.html" for a folder. Large files go out bit by
// bit while others are served. A path is percent-decoded once; one that leads out of the folder by
// "..", by a link or otherwise, that names a hidden file (".name") or something that is no plain
// file, or that holds a NUL or a backslash, is not this handler's, and so is one that does not
// exist: the next handler is asked. In a strict server it also sends "/sub" on to "/sub/", tells
// ETag and Last-Modified, answers 304 and 412 where the request asks for it, and single ranges of
// bytes, so that a video can be sought.
class PENNYWORT_API cHttpFolderHandler : public cHttpHandler {
public:
    // Files below `folder` answer paths below `prefix`, "/" for instance or "/static/".
    cHttpFolderHandler(const zString& folder, const zString& prefix);
    zStatus Handle(zSocket* socket, std::int32_t method, const zString& path,
                   const zString& extension, const zString& query, const char* body) override;
    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;
    std::unique_ptr<cHttpBody> HandleInPieces(zSocket* socket, std::int32_t method,
                                              const zString& path, const zString& extension,
                                              const zString& query, const char* body,
                                              zStatus& status) override;
    bool CanHandleRequest(const cHttpRequest& request) override;
    zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override;

    // The content type for a name's ending, without the dot; "application/octet-stream" for one
    // that is not known.
    static const char* ContentTypeOf(const char* extension);

protected:
    ~cHttpFolderHandler() override;

private:
    std::unique_ptr<cHttpBody> open(const zString& path) const;

    zString m_folder;
    zString m_prefix;
};

// Answers every request with a 404; install it last.
class PENNYWORT_API cHttpNotFoundHandler : public cHttpHandler {
public:
    zStatus Handle(zSocket* socket, std::int32_t method, const zString& path,
                   const zString& extension, const zString& query, const char* body) override;
    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;

protected:
    ~cHttpNotFoundHandler() override;
};

// What a server does beyond its duty. The default of each changes nothing; 0 means no bound.
struct PENNYWORT_API cHttpServerSettings {
    // Numeric address to listen on, "127.0.0.1" or "::1" for instance; empty: all of the machine.
    zString bindAddress;
    // Connections that may wait to be accepted. A client that finds no room tries again a second
    // later, so a server of many clients wants more.
    std::int32_t backlog = 3;
    // Connections at once; a further one is closed as soon as it is accepted.
    std::int32_t maxConnections = 0;
    // Bytes of one request, headers and body; the connection of a longer one is closed. The bound
    // that always holds is 2^31 - 2.
    std::int32_t maxRequestBytes = 0;
    // A connection on which no request has been completed for so long is closed, however many
    // bytes have come.
    std::int32_t idleTimeoutMs = 0;
    // A peer that takes nothing of an answer's pieces for so long is given up.
    std::int32_t stallTimeoutMs = 30000;
    // Whether the server follows RFC 9110 and 9112: it answers what it refuses, reads chunked
    // requests, answers HEAD, sends Date and "100 Continue", serves requests that came together
    // one after the other, and ends the connection where the request asks for that. Otherwise what
    // cannot be parsed is kept and never answered.
    bool isStrict = false;
    // With maxConnections reached, the oldest connection that no handler has trusted is closed in
    // place of the new one: one that waits for a request, otherwise one that is being answered.
    bool dropUntrustedWhenFull = false;
};

// Counted since the server began.
struct cHttpServerCounts {
    std::int64_t accepted = 0;       // connections
    std::int64_t refused = 0;        // connections closed because there were too many
    std::int64_t open = 0;           // connections now
    std::int64_t requests = 0;       // complete requests, handled or not
    std::int64_t bytesReceived = 0;  // also those that were dropped behind a NUL
    std::int64_t bytesExamined = 0;  // by the search for the ends of requests
};

// Serves GET, POST and PUT requests whose length is told by Content-Length. A request that no
// handler takes gets no answer, and its connection stays open. Unless the server is strict, bytes
// that arrive together with the end of a request are dropped with it: a client has to wait for the
// answer before it sends the next request. Bytes behind a NUL are dropped too, as far as they came
// together.
class PENNYWORT_API cHttpServer : public zThreadMain {
public:
    // Starts the thread, which listens on `port` of all addresses; 0 means one that the system
    // chooses. At most `bufferSize` bytes are received at once. When the port is taken the thread
    // runs all the same and serves nobody: ask ListenStatus.
    cHttpServer(std::int32_t port, std::int32_t bufferSize);
    cHttpServer(std::int32_t port, std::int32_t bufferSize, const cHttpServerSettings& settings);
    // A copy shares everything and has no thread of its own; there is little use for one. The
    // server that was copied ends it all.
    cHttpServer(const cHttpServer& other);
    cHttpServer& operator=(const cHttpServer& other);
    // Waits for the handler that is running, ends the thread, releases the handlers and closes all
    // connections. A handler may delete its server too; it must not touch its arguments after.
    ~cHttpServer() override;

    // The thread's body; not for callers.
    zStatus Main(std::int32_t argc, const char* const* argv) override;

    // Takes a reference. Handlers are asked in the order of installation, and the first that can
    // handles the request. From any thread, at any time.
    void InstallHandler(cHttpHandler& handler);
    // Ends the serving without waiting for it; connections stay open, unanswered, until the server
    // is destroyed. Before the thread has begun to serve it has no effect: ListenStatus waits until
    // it has. From any thread, handlers too, any number of times. 0.
    zStatus Stop();

    // 0 if the server listens, otherwise why not: zSocket::k_address_in_use when the port is taken.
    // Waits until the thread has tried, which it does first of all. From any thread.
    zStatus ListenStatus();
    // The port that the server listens on, or 0; waits as ListenStatus does. From any thread.
    std::int32_t ListenPort();
    // From any thread.
    void GetCounts(cHttpServerCounts& counts) const;

private:
    void end();

    std::int32_t m_running = 0;
    std::shared_ptr<zSocket> m_listen_socket;
    std::shared_ptr<zHeap<_zSocket_select*>> m_watch_set;
    std::shared_ptr<pennywort::httpserver::connection_list> m_connections;
    std::shared_ptr<pennywort::httpserver::handler_list> m_handlers;
    std::shared_ptr<char[]> m_receive_buffer;
    std::int32_t m_buffer_size = 0;
    std::int32_t m_port = 0;
    std::shared_ptr<zThread> m_thread;
    // All of the machinery. The thread holds it too, so that a handler may delete its server.
    std::shared_ptr<pennywort::httpserver::server_loop> m_loop;
};
