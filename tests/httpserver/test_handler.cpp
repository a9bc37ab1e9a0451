// test_handler.cpp - see the header for the contract.
#include "tests/httpserver/test_handler.h"

test_handler::test_handler(std::string prefix, std::string text, step inside)
    : m_prefix(std::move(prefix)), m_text(std::move(text)), m_inside(std::move(inside)) {}

bool test_handler::CanHandle(std::int32_t method, const zString& path, const zString& extension,
                             const zString& query, const char* request) {
    // One by one, so that the memory of the last question serves this one: a test may let none be
    // had, and a question that throws is never answered.
    m_asked.method = method;
    m_asked.path = path.CString();
    m_asked.extension = extension.CString();
    m_asked.query = query.CString();
    m_asked.request = request;
    return path.View().substr(0, m_prefix.size()) == m_prefix;
}

// The test's step comes last: it may end the server, and all that it gave us with it.
zStatus test_handler::Handle(zSocket* socket, std::int32_t method, const zString& path,
                             const zString& extension, const zString& query, const char* body) {
    {
        const std::lock_guard lock(m_mutex);
        seen_call call{method,          path.CString(),  extension.CString(),
                       query.CString(), m_asked.request, body};
        call.is_as_asked = m_asked.method == call.method && m_asked.path == call.path &&
                           m_asked.extension == call.extension && m_asked.query == call.query;
        m_calls.push_back(std::move(call));
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

body_handler::body_handler(std::string path, std::int32_t length, maker make_body,
                           test_handler::step before)
    : m_path(std::move(path)),
      m_length(length),
      m_make_body(std::move(make_body)),
      m_before(std::move(before)) {}

bool body_handler::CanHandle(std::int32_t, const zString& path, const zString&, const zString&,
                             const char*) {
    return path.View() == m_path;
}

std::unique_ptr<cHttpBody> body_handler::HandleInPieces(zSocket* socket, std::int32_t,
                                                        const zString&, const zString&,
                                                        const zString&, const char*,
                                                        zStatus& status) {
    if (m_before) m_before(socket);
    SendHeaders(socket, m_length, "text/plain");
    status = 0;
    return m_make_body();
}

std::string plain_answer(const std::string& text) {
    return "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nServer: nimb_httpd/0.1.0\r\n"
           "Content-Type: text/plain\r\nContent-Length: " +
           std::to_string(text.size()) + "\r\n\r\n" + text;
}
