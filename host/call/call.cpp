// host/call/call.cpp - see the header for the contract.
#include "host/call/call.h"

#include <cstdint>
#include <cstdio>

#include "host/app/exit_status.h"
#include "host/app/terminal_text.h"
#include "host/call/call_values.h"
#include "host/call/call_words.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "logger.h"
#include "xmlrpc.h"

namespace pennywort::host {

namespace {

constexpr std::int32_t k_most_logged = 0x7fffffff;

class one_call {
public:
    one_call(const call_options& options, const console& out) : m_options(options), m_out(out) {}

    int run() {
        const outcome opened = m_log.open(m_options.http.log, k_most_logged);
        if (!opened.ok()) return tell(k_exit_failed, opened.text());
        const zStatus status = exchange();
        if (status != 0) {
            const std::string words = words_for_call(status, m_error, m_has_head);
            if (m_log.logger() != nullptr) m_log.logger()->Error(status, words.c_str());
            const bool is_wrong = status == cHttpSession::k_connect_failed;
            return tell(is_wrong ? k_exit_usage : k_exit_failed, words);
        }
        const int shown = show();
        const outcome logged = m_log.close();
        return logged.ok() || shown != k_exit_fine ? shown : tell(k_exit_failed, logged.text());
    }

private:
    zStatus exchange() {
        const auto session = cHttpSession::Factory();
        if (session == nullptr) return -1;
        cHttpSessionSettings settings;
        settings.tlsByScheme = true;
        settings.caFile = m_options.http.ca_file;
        settings.tellBrokenBody = true;
        // Longer ones are not parsed: without this a server could fill the memory.
        settings.maxResponseBytes = zXML::k_most_bytes;
        session->SetSettings(settings);
        cXMLRPC client(session);
        client.Configure(m_options.http.url.c_str(), m_options.http.timeout);
        log_request();
        zBuffer body;
        zStatus status = client.Request_Begin(&body, *m_options.request, false);
        m_has_head = status == 0;
        if (m_has_head) {
            client.Request_BlockForResponse();
            log_response(client, body);
            status = client.Request_ResponseAsXML(m_response);
        }
        client.Request_End();
        m_error = session->Request_Error();
        return status;
    }

    void log_request() {
        if (m_log.logger() == nullptr) return;
        zBuffer xml;
        zXML::RecordToBuffer(&xml, *m_options.request, 3, false, true);
        m_log.logger()->Message(" POST ", m_options.http.url.c_str());
        m_log.logger()->Sent(xml.Data(), static_cast<std::int32_t>(xml.Length()));
    }

    void log_response(cXMLRPC& client, const zBuffer& body) {
        if (m_log.logger() == nullptr) return;
        const auto length = static_cast<std::int32_t>(client.Request_ContentBytesRead());
        m_log.logger()->Received(body.Data(), length);
    }

    int show() {
        const zXMLRPC message(m_response);
        zString text;
        std::int32_t code = 0;
        if (message.Fault(text, code) == 0) {
            return tell(k_exit_fault, "fault " + std::to_string(code) + ": " + text.CString());
        }
        zXMLRPC::Value result;
        json shown;
        if (message.Result(result) != 0 || !get_value(result, shown)) {
            return tell(k_exit_failed, "the response is no XML-RPC");
        }
        const bool is_taken = std::fprintf(m_out.output(), "%s\n", json_text(shown).c_str()) >= 0;
        if (std::fflush(m_out.output()) == 0 && is_taken) return k_exit_fine;
        return tell(k_exit_failed, "standard output takes nothing");
    }

    int tell(int status, const std::string& text) {
        std::fprintf(m_out.errors(), "pennywort: %s: %s\n", in_one_line(m_options.http.url).c_str(),
                     in_one_line(text).c_str());
        return status;
    }

    const call_options& m_options;
    const console& m_out;
    wire_log m_log;
    std::int32_t m_error = 0;  // of the session
    bool m_has_head = false;   // of the response
    zRecord m_response;
};

}  // namespace

int call(const call_options& options, const console& out) { return one_call(options, out).run(); }

}  // namespace pennywort::host
