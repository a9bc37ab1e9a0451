// session_fixture.h - a session, its sink and what came of a request.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "httpclient.h"

class SessionTest : public testing::Test {
protected:
    static constexpr double k_patient = 30.0;  // a bound for what comes at once

    // The result of the beginning; reads to the end when that was 0.
    long request(std::uint32_t verb, const std::string& url, const std::string& body = {},
                 const zRecord* headers = nullptr, double timeout = k_patient) {
        m_session->Configure(verb, url.c_str(), timeout);
        const long result =
            m_session->Request_Begin(&m_sink, headers, body.empty() ? nullptr : body.data(),
                                     static_cast<std::uint32_t>(body.size()));
        if (result == 0) m_session->Request_BlockForResponse();
        return result;
    }
    long get(const std::string& url) { return request(cHttpSession::k_get, url); }

    std::string body() const {
        const auto count = static_cast<std::size_t>(m_session->Request_ContentBytesRead());
        return count == 0 ? std::string() : std::string(m_sink.Data(), count);
    }
    long status(std::uint32_t* code = nullptr) { return m_session->Response_StatusCode(code); }

    std::shared_ptr<cHttpSession> m_session = cHttpSession::Factory();
    zBuffer m_sink{0, 0};
};
