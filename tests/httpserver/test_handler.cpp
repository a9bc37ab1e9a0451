// test_handler.cpp - see the header for the contract.
#include "tests/httpserver/test_handler.h"

test_handler::test_handler(std::string prefix, std::string text, step inside)
    : m_prefix(std::move(prefix)), m_text(std::move(text)), m_inside(std::move(inside)) {}

bool test_handler::CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                             const char* request) {
    m_request = request;
    return path.View().substr(0, m_prefix.size()) == m_prefix;
}

// The test's step comes last: it may end the server, and all that it gave us with it.
zStatus test_handler::Handle(zSocket* socket, std::int32_t method, const zString& path,
                             const zString& extension, const zString& query, const char* body) {
    {
        const std::lock_guard lock(m_mutex);
        m_calls.push_back(
            {method, path.CString(), extension.CString(), query.CString(), m_request, body});
    }
    SendHeaders(socket, static_cast<std::int32_t>(m_text.size()), "text/plain");
    const zStatus status = SendString(socket, m_text.c_str());
    if (m_inside) m_inside(socket);
    return status;
}

std::vector<seen_call> test_handler::calls() const {
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

seen_call test_handler::last() const {
    const std::lock_guard lock(m_mutex);
    return m_calls.empty() ? seen_call() : m_calls.back();
}

std::string plain_answer(const std::string& text) {
    return "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nServer: nimb_httpd/0.1.0\r\n"
           "Content-Type: text/plain\r\nContent-Length: " +
           std::to_string(text.size()) + "\r\n\r\n" + text;
}
