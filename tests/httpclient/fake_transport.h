// fake_transport.h - a system's HTTP service as a test wants it: each step can fail, and what was
// asked of it is written down.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/http/user_proxy.h"
#include "httpclient/http_transport.h"

namespace pennywort::httpclient {

// What the test and the transport share; the session owns the transport.
struct fake_service {
    std::vector<std::string> steps;  // names, and what a test looks at
    std::set<std::string> failing;   // names of steps that fail
    receive_result received = receive_result::response;
    std::vector<std::string> pieces;  // of the body
    std::map<header_query, std::string> answers;
    std::vector<proxy_choice> proxies;
    std::function<void()> at_connect;
    std::function<void()> at_bytes_available;
    std::optional<http::user_proxy> user;  // nothing: the system does not tell
    int user_asked = 0;
    std::string object;
    std::string headers;
    std::string body;
    std::string verb;
    std::int32_t timeout = -7;
    std::uint32_t total = 0;
    char* offered = nullptr;
    std::uint32_t room = 0;
    bool is_secure = false;
    bool is_short_of_bytes = false;  // each read brings less than was asked for

    int count(const std::string& step) const {
        int found = 0;
        for (const std::string& each : steps) found += each == step;
        return found;
    }
};

class fake_transport final : public http_transport {
public:
    explicit fake_transport(std::shared_ptr<fake_service> service)
        : m_service(std::move(service)) {}

    bool open_session(const std::string& agent, const proxy_choice& proxy,
                      const std::string&) override {
        m_service->proxies.push_back(proxy);
        m_has_session = step("open_session " + agent, "open_session");
        return m_has_session;
    }
    bool has_session() const override {
        return m_has_session && m_service->failing.count("has_session") == 0;
    }
    bool connect(const std::string& host, std::int32_t port) override {
        if (m_service->at_connect) m_service->at_connect();
        return step("connect " + host + " " + std::to_string(port), "connect");
    }
    bool open_request(const char* verb, const std::string& object, bool is_secure) override {
        m_service->verb = verb == nullptr ? "null" : verb;
        m_service->object = object;
        m_service->is_secure = is_secure;
        m_has_request = step("open_request", "open_request");
        return m_has_request;
    }
    bool has_request() const override { return m_has_request; }
    void set_timeouts(std::int32_t milliseconds) override {
        m_service->timeout = milliseconds;
        step("set_timeouts", "set_timeouts");
    }
    bool send_headers(const std::string& headers, const void*, std::uint32_t total) override {
        m_service->headers = headers;
        m_service->total = total;
        return step("send_headers", "send_headers");
    }
    bool write_body(const void* body, std::uint32_t length) override {
        m_service->body.assign(static_cast<const char*>(body), length);
        return step("write_body", "write_body");
    }
    receive_result receive() override {
        step("receive", "receive");
        m_next = 0;
        return m_service->received;
    }
    void offer(char* into, std::uint32_t room) override {
        m_service->offered = into;
        m_service->room = room;
    }
    bool bytes_available(std::uint32_t& count) override {
        if (m_service->at_bytes_available) m_service->at_bytes_available();
        if (!step("bytes_available", "bytes_available")) return false;
        const bool has_piece = m_next < m_service->pieces.size();
        count = has_piece ? static_cast<std::uint32_t>(m_service->pieces[m_next].size()) : 0;
        return true;
    }
    bool read(char* into, std::uint32_t size) override {
        if (!step("read", "read")) return false;
        const std::string& piece = m_service->pieces[m_next++];
        std::memcpy(into, piece.data(), m_service->is_short_of_bytes ? size / 2 : size);
        return true;
    }
    bool query(header_query what, std::string& out) const override {
        const auto found = m_service->answers.find(what);
        if (found != m_service->answers.end()) out = found->second;
        return found != m_service->answers.end();
    }
    void close_all() override {
        step("close_all", "close_all");
        m_has_session = m_has_request = false;
    }
    // As WinHTTP does.
    void cancel() override {
        step("cancel", "cancel");
        m_has_request = false;
    }
    std::int32_t last_error() const override { return 12345; }

private:
    bool step(const std::string& told, const std::string& name) {
        m_service->steps.push_back(told);
        return m_service->failing.count(name) == 0;
    }

    const std::shared_ptr<fake_service> m_service;
    bool m_has_session = false;
    bool m_has_request = false;
    std::size_t m_next = 0;
};

}  // namespace pennywort::httpclient
