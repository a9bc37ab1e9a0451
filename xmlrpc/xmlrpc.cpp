// xmlrpc.cpp - cXMLRPC of include/xmlrpc.h.
#include "xmlrpc.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "loam/babel.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "xmlrpc/character_references.h"

using pennywort::k_failed;
using pennywort::k_ok;

namespace {

constexpr std::uint32_t k_parse_flags = 255;
constexpr std::uint32_t k_write_flags = 3;
constexpr std::uint32_t k_grow = 4096;

zStatus write_xml(zBuffer& out, const zRecord& request) {
    return zXML::RecordToBuffer(&out, request, k_write_flags, false, true);
}

std::string_view view_of(const zBuffer& buffer) { return {buffer.Data(), buffer.Length()}; }

// The UTF-16 units of a text, up to the first that is 0.
class wide_units {
public:
    explicit wide_units(const zBuffer& wide) : m_wide(wide) {}

    // 0 at the end.
    char16_t next() {
        char16_t unit = 0;
        if (m_wide.Length() - m_at < sizeof unit) return 0;
        std::memcpy(&unit, m_wide.Data() + m_at, sizeof unit);
        m_at += sizeof unit;
        return unit;
    }

private:
    const zBuffer& m_wide;
    std::uint32_t m_at = 0;
};

zStatus write_escaped(zBufferStream& out, char16_t unit) {
    if (unit <= 127) {
        const char c = static_cast<char>(unit);
        return out.Write(&c, 1, nullptr);
    }
    // The reference's own ampersand is escaped: the receiver's text is to hold the reference.
    std::array<char, 16> text;
    const int length =
        std::snprintf(text.data(), text.size(), "&amp;#x%04hX;", static_cast<unsigned short>(unit));
    return out.Write(text.data(), static_cast<std::uint32_t>(length), nullptr);
}

}  // namespace

cXMLRPC::cXMLRPC() : m_session(cHttpSession::Factory()) {}

cXMLRPC::cXMLRPC(const char* url, double timeout) : cXMLRPC() { Configure(url, timeout); }

cXMLRPC::cXMLRPC(std::shared_ptr<cHttpSession> session) : m_session(std::move(session)) {}

cXMLRPC::cXMLRPC(const cXMLRPC& other) = default;

cXMLRPC& cXMLRPC::operator=(const cXMLRPC& other) = default;

cXMLRPC::~cXMLRPC() = default;

void cXMLRPC::Configure(const char* url, double timeout) {
    if (m_session != nullptr) m_session->Configure(cHttpSession::k_post, url, timeout);
}

bool cXMLRPC::IsConfigured() const { return m_session != nullptr && m_session->IsConfigured(); }

void cXMLRPC::SetAuthentication(const char* user, const char* password) {
    if (m_session != nullptr) m_session->SetAuthentication(true, user, password);
}

void cXMLRPC::SetLogger(cLogger* logger) {
    if (m_session != nullptr) m_session->SetLogger(logger);
}

zStatus cXMLRPC::Request_Begin(zBuffer* response, const zRecord& request, bool escapeNonAscii) {
    m_response = response;
    zBuffer xml;
    if (const zStatus status = write_xml(xml, request); status != k_ok) return status;
    if (!escapeNonAscii) return send(response, view_of(xml));
    zBuffer escaped;
    // What zXML writes is valid, so that only memory can be out here, or 2 GiB too little; the
    // server then gets a document that ends before its end, and refuses it.
    convert_utf8_to_escapes(escaped, xml.Data(), xml.Length());
    return send(response, view_of(escaped));
}

zStatus cXMLRPC::Request_BeginWithReferences(zBuffer* response, const zRecord& request) {
    m_response = response;
    zBuffer xml;
    if (const zStatus status = write_xml(xml, request); status != k_ok) return status;
    zStatus status = k_failed;
    pennywort::run::guarded("cXMLRPC", "references", [&] {
        status = send(response, pennywort::xmlrpc::with_character_references(view_of(xml)));
    });
    return status;
}

zStatus cXMLRPC::send(zBuffer* response, std::string_view xml) {
    if (m_session == nullptr) return k_failed;
    zStatus status = k_failed;
    pennywort::run::guarded("cXMLRPC", "a request", [&] {
        zRecord headers;
        cHttpSession::SetContentTypeHeader(headers, "text/xml");
        status = static_cast<zStatus>(m_session->Request_Begin(
            response, &headers, xml.data(), static_cast<std::uint32_t>(xml.size())));
    });
    return status;
}

bool cXMLRPC::Request_IsComplete() {
    // Without a session nothing will ever come: whoever polls must come to an end.
    return m_session == nullptr || m_session->Request_IsComplete();
}

void cXMLRPC::Request_BlockForResponse() {
    if (m_session != nullptr) m_session->Request_BlockForResponse();
}

void cXMLRPC::Request_Status(float* started, float* fraction) {
    if (m_session != nullptr) m_session->Request_Status(started, fraction);
}

void cXMLRPC::Request_Stop() {
    if (m_session != nullptr) m_session->Request_Stop();
}

std::uint32_t cXMLRPC::Request_ContentBytesRead() {
    return m_session == nullptr ? 0 : m_session->Request_ContentBytesRead();
}

void cXMLRPC::Request_End() {
    m_response = nullptr;
    if (m_session != nullptr) m_session->Request_End();
}

zStatus cXMLRPC::Request_ResponseAsXML(zRecord& out) {
    if (m_response == nullptr || m_session == nullptr) return k_failed;
    if (const zStatus status = Response_StatusCode(nullptr); status != k_ok) return status;
    std::uint32_t length = 0;
    zString type;
    if (Response_ContentLength(&length) == k_ok) {
        Response_ContentType(type);
    } else {
        length = m_response->Length();
    }
    if (length > m_response->Length()) return k_ok;
    constexpr std::string_view k_multipart_front = "multipart/";
    if (zString::strncasecmp(type.CString(), k_multipart_front.data(),
                             static_cast<std::int32_t>(k_multipart_front.size())) == 0) {
        return k_multipart;
    }
    // A negative length would mean up to a NUL, which a response need not have.
    constexpr std::uint32_t k_refused = zXML::k_most_bytes + 1;
    return zXML::ParseBuffer(k_parse_flags, &out, m_response->Data(),
                             static_cast<std::int32_t>(std::min(length, k_refused)));
}

zStatus cXMLRPC::Response_StatusCode(std::uint32_t* code) {
    if (m_session == nullptr) return k_failed;
    return static_cast<zStatus>(m_session->Response_StatusCode(code));
}

zStatus cXMLRPC::Response_ContentType(zString& type) {
    if (m_session == nullptr) return k_failed;
    return static_cast<zStatus>(m_session->Response_ContentType(type));
}

zStatus cXMLRPC::Response_ContentLength(std::uint32_t* length) {
    if (m_session == nullptr) return k_failed;
    return static_cast<zStatus>(m_session->Response_ContentLength(length));
}

std::int32_t cXMLRPC::MakeErrorResponse(zRecord& response, std::int32_t code) {
    zXMLRPC(response).SetFault("transport fault", code);
    return code;
}

zStatus cXMLRPC::convert_utf8_to_escapes(zBuffer& out, const char* utf8, std::uint32_t length) {
    constexpr std::uint32_t k_most = std::numeric_limits<std::int32_t>::max();
    if (length > k_most) return zXML::k_too_large;
    zBuffer wide;
    const zStatus converted =
        zBabel::ConvertToWide(wide, utf8, static_cast<std::int32_t>(length), zBabel::k_utf8);
    if (converted != k_ok) return converted;
    zBufferStream stream(out, k_grow);
    wide_units units(wide);
    zStatus status = k_ok;
    for (char16_t unit = units.next(); unit != 0 && status == k_ok; unit = units.next()) {
        status = write_escaped(stream, unit);
    }
    stream.ResizeBufferToFit();
    return status;
}
