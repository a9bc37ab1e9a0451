// xmlrpc.h - cXMLRPC calls a server by XML-RPC over HTTP; zXMLRPC (loam/xmlrpc.h) makes and reads
// its messages.
//
// Threads: an object and its copies belong to one thread at a time; every call runs to its end on
// the caller's thread, as those of cHttpSession do.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "httpclient.h"
#include "loam/buffer.h"
#include "loam/record.h"
#include "loam/string.h"
#include "loam/types.h"
#include "pennywort_export.h"

class cLogger;

// One call at a time: Request_Begin, then Request_BlockForResponse or Request_IsComplete until it
// is true, Request_ResponseAsXML, Request_End. Copies share the session, so a request that was
// begun through one is visible through all.
class PENNYWORT_API cXMLRPC {
public:
    // Request_ResponseAsXML: the response has several parts, which cMultipartReader takes apart.
    static constexpr zStatus k_multipart = -21321;

    // With a session of its own from cHttpSession::Factory.
    cXMLRPC();
    cXMLRPC(const char* url, double timeout);
    // With a session that the caller has set up.
    explicit cXMLRPC(std::shared_ptr<cHttpSession> session);
    cXMLRPC(const cXMLRPC& other);
    cXMLRPC& operator=(const cXMLRPC& other);
    ~cXMLRPC();

    // The server, and the time-out in seconds of each step that waits.
    void Configure(const char* url, double timeout);
    bool IsConfigured() const;
    // Has no effect with the sessions of cHttpSession::Factory; cHttpSessionSettings has one that
    // has.
    void SetAuthentication(const char* user, const char* password);
    void SetLogger(cLogger* logger);

    // Sends the call and waits for the response's head. `response` receives the body: begin with an
    // empty one, which must last until Request_End. With `escapeNonAscii` each UTF-16 unit of a
    // character beyond ASCII is sent as "&amp;#xHHHH;": the receiver's text then holds the
    // reference itself and not the character, which hosts rely on. The statuses are those of zXML
    // and of the session.
    zStatus Request_Begin(zBuffer* response, const zRecord& request, bool escapeNonAscii);
    // The same, but characters beyond ASCII are sent as references that the receiver's parser turns
    // back into the characters.
    zStatus Request_BeginWithReferences(zBuffer* response, const zRecord& request);
    bool Request_IsComplete();
    void Request_BlockForResponse();
    void Request_Status(float* started, float* fraction);
    void Request_Stop();
    std::uint32_t Request_ContentBytesRead();
    // Forgets the response's buffer.
    void Request_End();
    // Parses the response into `out`. -1 without a request; the session's status unless the
    // server's is 200 to 299; k_multipart; otherwise that of zXML::ParseBuffer. 0 with `out` as it
    // was while less has come than was announced.
    zStatus Request_ResponseAsXML(zRecord& out);

    // As the session has them.
    zStatus Response_StatusCode(std::uint32_t* code);
    zStatus Response_ContentType(zString& type);
    zStatus Response_ContentLength(std::uint32_t* length);

    // Makes `response` a fault, "transport fault" with this code, which it returns: a call that
    // failed on its way can then be treated as one that the server refused.
    static std::int32_t MakeErrorResponse(zRecord& response, std::int32_t code);

protected:
    // Appends `utf8` to `out` as Request_Begin escapes it, up to the first NUL.
    zStatus convert_utf8_to_escapes(zBuffer& out, const char* utf8, std::uint32_t length);

private:
    zStatus send(zBuffer* response, std::string_view xml);

    std::shared_ptr<cHttpSession> m_session;
    zBuffer* m_response = nullptr;
};

// Several calls in one request, for servers that have system.multicall. A failure but for a status
// of k_no_message leaves the request unfit to be sent.
class PENNYWORT_API cXMLRPCMulticall {
public:
    // Makes `request` a call of no calls; it must last.
    explicit cXMLRPCMulticall(zRecord& request);

    // Appends a call with all its parameters. zXMLRPC::k_no_message for what is none.
    zStatus AddCall(zRecord& call);
    std::uint32_t CallCount() const;
    // Makes `out` the response, or the fault, of the call number `index`, out of the response to
    // all of them; where that is a fault itself, this fault. zXMLRPC::k_no_message when it holds
    // nothing of this number, with `out` empty.
    static zStatus GetResponse(zRecord& response, std::uint32_t index, zRecord& out);

private:
    zRecord* m_request;
};
