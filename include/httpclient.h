// httpclient.h - cHttpSession, a client of HTTP/1.1: one request at a time, whose body the caller
// pulls step by step or waits for.
//
// Threads: a session belongs to one thread at a time, which may change between calls; every call
// runs to its end on the caller's thread and waits at most for the configured time-outs. Sessions
// on different threads do not disturb each other.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "loam/buffer.h"
#include "loam/record.h"
#include "loam/string.h"
#include "pennywort_export.h"

class cLogger;

// What a session does beyond its duty. The default of each changes nothing.
struct PENNYWORT_API cHttpSessionSettings {
    // Sends the name and password of SetBasicHTTPAuthentication (RFC 7617) with each request that
    // has no Authorization header of its own.
    bool sendBasicAuthentication = false;
    // TLS for "https" and none for "http", whatever the port; otherwise the port 443 alone decides.
    bool tlsByScheme = false;
    // Whether Request_Stop ends what another thread waits for in this session.
    bool stopFromAnyThread = false;
    // Whether Response_Headers joins the values of a repeated header by ", " (RFC 9110, 5.3), those
    // of Set-Cookie by a line feed; otherwise the last one stays.
    bool keepRepeatedHeaders = false;
    // Bytes of a response's body; reading a longer one ends, and Response_StatusCode returns
    // cHttpSession::k_too_large. 0: no ceiling but that of the sink.
    std::int64_t maxResponseBytes = 0;
    // A file of certificates (PEM) that are trusted instead of the system's.
    zString caFile;
    // Whether Response_StatusCode returns k_timed_out or k_receive_failed for a body that broke off
    // though its length was not announced: a chunked one without its last chunk, for instance.
    // Otherwise what came of it passes for the whole.
    bool tellBrokenBody = false;
};

// The result codes are 0 for success and negative otherwise: -14 when the response did not come in
// time, -21301 to -21317 and -21501 to -21511 as docs/http_client.md lists them, -29000 minus the
// status of a response outside 200 to 299.
class PENNYWORT_API cHttpSession : public std::enable_shared_from_this<cHttpSession> {
public:
    // Methods: four characters, the first in the highest byte. Any other code but 0 is sent as GET;
    // 0 means that the session is not configured.
    static constexpr std::uint32_t k_get = 0x6765742E;     // "get."
    static constexpr std::uint32_t k_post = 0x706F7374;    // "post"
    static constexpr std::uint32_t k_put = 0x7075742E;     // "put."
    static constexpr std::uint32_t k_patch = 0x70616368;   // "pach"
    static constexpr std::uint32_t k_delete = 0x64656C74;  // "delt"

    static constexpr long k_timed_out = -14;
    static constexpr long k_no_request = -21301;
    static constexpr long k_no_session = -21310;
    static constexpr long k_incomplete = -21311;
    static constexpr long k_not_opened = -21312;
    static constexpr long k_send_failed = -21313;
    static constexpr long k_write_failed = -21314;
    static constexpr long k_receive_failed = -21315;
    static constexpr long k_session_failed = -21316;
    static constexpr long k_connect_failed = -21317;
    static constexpr long k_too_large = -21318;  // only with maxResponseBytes
    static constexpr long k_stopped = -21319;    // only with stopFromAnyThread
    static constexpr long k_unknown_scheme = -21501;
    static constexpr long k_no_scheme = -21502;
    static constexpr long k_url_too_short = -21503;
    static constexpr long k_bad_header_name = -21511;

    // What cHttpSession::Request_Error returns, among others: the numbers that WinHTTP has for
    // them.
    enum request_error : std::int32_t {
        k_error_none = 0,
        k_error_no_memory = 8,
        k_error_not_supported = 50,  // a caFile, on Windows
        k_error_timed_out = 12002,
        k_error_bad_url = 12005,  // a header that cannot be sent too
        k_error_unknown_name = 12007,
        k_error_stopped = 12017,
        k_error_no_connection = 12029,
        k_error_connection_lost = 12030,
        k_error_bad_response = 12152,
        k_error_too_many_redirects = 12156,
        k_error_no_tls = 12157,
        k_error_not_trusted = 12175,  // on Windows whatever fails in TLS
    };

    // Gets each newly read piece of a body; false ends the reading. Called on the caller's thread,
    // inside Request_IsComplete and what waits by it. With a sink the buffer is empty.
    using chunk_callback = std::function<bool(zBuffer& chunk)>;

    // A session of this system's own HTTP service; null when memory is out.
    static std::shared_ptr<cHttpSession> Factory();
    // 0 for a URL whose scheme is http or https; otherwise the first of k_url_too_short (fewer than
    // 8 characters), k_no_scheme (no ':' or no '/'), k_unknown_scheme. Nothing else is looked at.
    static long ValidateURL(std::string url);
    // Whether the name, white space around it cut off, has 1 to 8096 bytes and among them no space,
    // colon, CR or LF.
    static bool HeaderNameIsValid(std::string name);
    // Sets "Content-Type" in `headers`, which it returns.
    static zRecord& SetContentTypeHeader(zRecord& headers, const char* type);

    cHttpSession();
    // A copy holds a reference of its own to the logger.
    cHttpSession(const cHttpSession& other);
    cHttpSession& operator=(const cHttpSession& other);
    // Ends what is open. On any thread, if none is inside the session.
    virtual ~cHttpSession();

    // Takes a reference to the logger, and releases the one before. Null removes it. The session
    // itself writes nothing to it.
    virtual void SetLogger(cLogger* logger);
    // The method, the URL and the time-out in seconds of each step that waits: name, connection,
    // sending, receiving. The time-out is cut to whole milliseconds; 0 means for ever. Checked when
    // a request begins.
    virtual void Configure(std::uint32_t verb, const char* url, double timeoutSeconds) = 0;
    virtual bool IsConfigured() = 0;
    // Stores name and password. They are sent only with
    // cHttpSessionSettings::sendBasicAuthentication.
    virtual void SetBasicHTTPAuthentication(const char* user, const char* password);
    // Does nothing.
    virtual void SetAuthentication(bool enable, const char* user, const char* password) = 0;

    // Connects, sends the headers (text variables of `headers`, null for none) and `length` bytes
    // of `body`, and waits for the response's head. With a null `body` the length is announced and
    // nothing is sent. A request that fails is tried once more without the user's proxy. The
    // callback stays for later requests.
    virtual long Request_BeginWithCallback(chunk_callback callback, const zRecord* headers,
                                           const void* body, std::uint32_t length) = 0;
    // The same, and the body of the response goes into `sink`, from its start on, which is made
    // longer as needed and never shorter. It is not owned, and must last until Request_End.
    virtual long Request_Begin(zBuffer* sink, const zRecord* headers, const void* body,
                               std::uint32_t length) = 0;
    // `started` becomes 1 when the length of the body is known, `fraction` how much of it has come;
    // both 0 otherwise. Each may be null.
    virtual void Request_Status(float* started, float* fraction) = 0;
    // One step of reading, which waits for the next bytes. True when the body is complete or
    // nothing more can be read.
    virtual bool Request_IsComplete() = 0;
    // Reads to the end.
    virtual void Request_BlockForResponse() = 0;
    // Reads to the end, but begins no step after `limit` microseconds; false then.
    virtual bool Request_BlockForResponseWithin(std::uint32_t limit) = 0;

    // The response's status, 0 if there is none; `code` may be null. Returns 0 for 200 to 299,
    // -29000 minus the status for others below 999, -29999 from there on, k_incomplete while less
    // than the announced length has come, and the code of a request that could not connect.
    virtual long Response_StatusCode(std::uint32_t* code) = 0;
    // Sets a text variable for each header of the response; the last of a name stays. The value
    // begins two bytes behind the colon. -1 without a response.
    virtual long Response_Headers(zRecord& headers) = 0;
    // -1 when the response has no such header.
    virtual long Response_ContentType(zString& type) = 0;
    // -1 when the length is not known, with `length` untouched. `length` may be null.
    virtual long Response_ContentLength(std::uint32_t* length) = 0;
    virtual long Response_ContentLength64(std::uint64_t* length) = 0;
    // Does nothing, unless the setting stopFromAnyThread is on: then the request that another
    // thread waits for ends, with k_stopped. From any thread.
    virtual void Request_Stop() = 0;
    virtual std::uint32_t Request_ContentBytesRead() = 0;
    virtual std::int64_t Request_ContentBytesRead64() = 0;
    // Forgets the sink.
    virtual void Request_End() = 0;
    // Traces `end` minus `start` with the URL if the environment variable TarnhelmTimeHTTP is set
    // and not empty.
    virtual void LogElaspsedTime(std::int64_t start, std::int64_t end);
    virtual void Reserved22() = 0;
    virtual void Reserved23() = 0;
    virtual zString GetURL() = 0;

    // For the next request on.
    void SetSettings(const cHttpSessionSettings& settings);
    // Why the last step of the request that failed did, as a request_error or another number of
    // the system's; 0 when none has failed in the system's HTTP service, and for a session of
    // another maker than Factory.
    std::int32_t Request_Error() const;

protected:
    const cHttpSessionSettings& settings() const;

    cLogger* m_logger = nullptr;
    std::int32_t m_use_basic_authentication = 0;
    zString m_user_name;
    zString m_password;
    // Shared with copies, never changed; null: the defaults.
    std::shared_ptr<const cHttpSessionSettings> m_settings;
};
