// host/call/call.cpp - see the header for the contract.
#include "host/call/call.h"

#include <cstdint>
#include <cstdio>

#include "host/app/exit_status.h"
#include "host/call/call_values.h"
#include "host/call/call_words.h"
#include "host/output/output_file.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"
#include "logger.h"
#include "xmlrpc.h"

namespace pennywort::host {

namespace {

constexpr std::int32_t k_most_logged = 0x7fffffff;

struct logger_release {
    void operator()(cLogger* logger) const { logger->Release(); }
};
using owned_logger = std::unique_ptr<cLogger, logger_release>;

class one_call {
public:
    one_call(const call_options& options, const console& out) : m_options(options), m_out(out) {}

    int run() {
        const outcome log = open_log();
        if (!log.ok()) return tell(k_exit_failed, log.text());
        const zStatus status = exchange();
        if (status != 0) {
            const std::string words = words_for_call(status);
            if (m_log != nullptr) m_log->Error(status, words.c_str());
            return tell(k_exit_failed, words);
        }
        return show();
    }

private:
    // The logger itself tells nobody that its file cannot be written.
    outcome open_log() {
        if (m_options.log.empty()) return outcome::fine();
        const outcome writable = can_be_written(m_options.log);
        if (writable.ok()) m_log.reset(new cLogger(m_options.log.c_str(), k_most_logged));
        return writable;
    }

    zStatus exchange() {
        const auto session = cHttpSession::Factory();
        if (session == nullptr) return -1;
        cHttpSessionSettings settings;
        settings.tlsByScheme = true;
        settings.sendBasicAuthentication = true;
        settings.caFile = m_options.ca_file;
        settings.tellBrokenBody = true;
        // Longer ones are not parsed: without this a server could fill the memory.
        settings.maxResponseBytes = zXML::k_most_bytes;
        session->SetSettings(settings);
        cXMLRPC client(session);
        client.Configure(m_options.url.c_str(), m_options.timeout);
        log_request();
        zBuffer body;
        zStatus status = client.Request_Begin(&body, *m_options.request, false);
        if (status == 0) {
            client.Request_BlockForResponse();
            log_response(client, body);
            status = client.Request_ResponseAsXML(m_response);
        }
        client.Request_End();
        return status;
    }

    void log_request() {
        if (m_log == nullptr) return;
        zBuffer xml;
        zXML::RecordToBuffer(&xml, *m_options.request, 3, false, true);
        m_log->Message(" POST ", m_options.url.c_str());
        m_log->Sent(xml.Data(), static_cast<std::int32_t>(xml.Length()));
    }

    void log_response(cXMLRPC& client, const zBuffer& body) {
        if (m_log == nullptr) return;
        const auto length = static_cast<std::int32_t>(client.Request_ContentBytesRead());
        m_log->Received(body.Data(), length);
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
        std::fprintf(m_out.output(), "%s\n", json_text(shown).c_str());
        if (std::fflush(m_out.output()) == 0) return k_exit_fine;
        return tell(k_exit_failed, "standard output takes nothing");
    }

    int tell(int status, const std::string& text) {
        std::fprintf(m_out.errors(), "pennywort: %s: %s\n", m_options.url.c_str(),
                     in_one_line(text).c_str());
        return status;
    }

    const call_options& m_options;
    const console& m_out;
    owned_logger m_log;
    zRecord m_response;
};

}  // namespace

int call(const call_options& options, const console& out) { return one_call(options, out).run(); }

}  // namespace pennywort::host
