// fake_session.h - a session that answers what a test says and notes what it was asked.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "httpclient.h"

namespace pennywort::tests {

class fake_session final : public cHttpSession {
public:
    // What comes back.
    long begin_result = 0;
    long status = 0;
    long length_result = 0;
    std::uint32_t announced_length = 0;
    std::string content_type = "text/xml";
    std::string body;

    // What was asked, in order, and what was sent.
    std::vector<std::string> calls;
    std::string sent;
    std::string sent_type;
    cLogger* given_logger = nullptr;

    // The body comes whole when a request begins.
    void answer(const std::string& text) {
        body = text;
        announced_length = static_cast<std::uint32_t>(text.size());
    }

    void SetLogger(cLogger* logger) override {
        note("SetLogger");
        given_logger = logger;
        cHttpSession::SetLogger(logger);
    }
    void Configure(std::uint32_t verb, const char* url, double timeout) override {
        note("Configure " + std::to_string(verb) + " " + url + " " + std::to_string(timeout));
        m_is_configured = true;
    }
    bool IsConfigured() override { return m_is_configured; }
    void SetAuthentication(bool enable, const char* user, const char* password) override {
        note("SetAuthentication " + std::to_string(enable) + " " + user + " " + password);
    }
    long Request_BeginWithCallback(chunk_callback, const zRecord*, const void*,
                                   std::uint32_t) override {
        note("Request_BeginWithCallback");
        return -1;
    }
    long Request_Begin(zBuffer* sink, const zRecord* headers, const void* bytes,
                       std::uint32_t length) override {
        note("Request_Begin");
        sent = bytes == nullptr ? "" : std::string(static_cast<const char*>(bytes), length);
        sent_type = headers->AsString("Content-Type", "");
        if (begin_result == 0 && sink != nullptr && !body.empty()) {
            sink->ResizeTo(static_cast<std::uint32_t>(body.size()), 0);
            std::memcpy(sink->Data(), body.data(), body.size());
        }
        return begin_result;
    }
    void Request_Status(float* started, float* fraction) override {
        *started = 1;
        *fraction = 0.5F;
    }
    bool Request_IsComplete() override { return true; }
    void Request_BlockForResponse() override { note("Request_BlockForResponse"); }
    bool Request_BlockForResponseWithin(std::uint32_t) override { return true; }
    long Response_StatusCode(std::uint32_t* code) override {
        note(code == nullptr ? "Response_StatusCode null" : "Response_StatusCode");
        if (code != nullptr) *code = 200;
        return status;
    }
    long Response_Headers(zRecord&) override { return 0; }
    long Response_ContentType(zString& type) override {
        note("Response_ContentType");
        type = content_type;
        return 0;
    }
    long Response_ContentLength(std::uint32_t* length) override {
        if (length_result == 0) *length = announced_length;
        return length_result;
    }
    long Response_ContentLength64(std::uint64_t*) override { return -1; }
    void Request_Stop() override { note("Request_Stop"); }
    std::uint32_t Request_ContentBytesRead() override { return 7; }
    std::int64_t Request_ContentBytesRead64() override { return 7; }
    void Request_End() override { note("Request_End"); }
    void Reserved22() override {}
    void Reserved23() override {}
    zString GetURL() override { return {}; }

private:
    void note(const std::string& call) { calls.push_back(call); }

    bool m_is_configured = false;
};

}  // namespace pennywort::tests
