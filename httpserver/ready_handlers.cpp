// httpserver/ready_handlers.cpp - the fixed text and the 404 of include/httpserver.h.
#include "httpserver.h"
#include "httpserver/answer.h"

cHttpTextHandler::cHttpTextHandler(const zString& path, const zString& contentType,
                                   const zString& text)
    : m_path(path), m_content_type(contentType), m_text(text) {}

cHttpTextHandler::~cHttpTextHandler() = default;

bool cHttpTextHandler::CanHandle(std::int32_t method, const zString& path, const zString&,
                                 const zString&, const char*) {
    return method == k_get && path == m_path;
}

zStatus cHttpTextHandler::Handle(zSocket* socket, std::int32_t, const zString&, const zString&,
                                 const zString&, const char*) {
    return SendAnswer(socket, 200, m_content_type.CString(), m_text.CString(), m_text.Length());
}

cHttpNotFoundHandler::~cHttpNotFoundHandler() = default;

bool cHttpNotFoundHandler::CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                                     const char*) {
    return true;
}

zStatus cHttpNotFoundHandler::Handle(zSocket* socket, std::int32_t, const zString&, const zString&,
                                     const zString&, const char*) {
    const std::string_view page = pennywort::httpserver::not_found_page();
    return SendAnswer(socket, 404, "text/html", page.data(),
                      static_cast<std::int64_t>(page.size()));
}
