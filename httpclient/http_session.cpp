// httpclient/http_session.cpp - cHttpSession of include/httpclient.h: what does not depend on how a
// request is made.
#include <string_view>
#include <utility>

#include "core/run/environment.h"
#include "core/run/guarded.h"
#include "core/text/ascii.h"
#include "httpclient.h"
#include "httpclient/http_session_winhttp.h"
#include "loam/trace.h"
#include "logger.h"

namespace {

constexpr std::size_t k_shortest_url = 8;
constexpr std::size_t k_longest_header_name = 8096;

}  // namespace

std::shared_ptr<cHttpSession> cHttpSession::Factory() {
    return pennywort::run::guarded_or<std::shared_ptr<cHttpSession>>(
        nullptr, "cHttpSession", "making a session",
        [] { return std::make_shared<pennywort::httpclient::cHttpSession_winhttp>(); });
}

long cHttpSession::ValidateURL(std::string url) {
    if (url.size() < k_shortest_url) return k_url_too_short;
    const std::size_t colon = url.find(':');
    if (colon == std::string::npos) return k_no_scheme;
    if (url.find('/') == std::string::npos) return k_no_scheme;
    const std::string_view scheme = std::string_view(url).substr(0, colon);
    const bool is_known = pennywort::text::equal_ignoring_case(scheme, "http") ||
                          pennywort::text::equal_ignoring_case(scheme, "https");
    return is_known ? 0 : k_unknown_scheme;
}

bool cHttpSession::HeaderNameIsValid(std::string name) {
    const std::string_view bare = pennywort::text::trimmed(name);
    return !bare.empty() && bare.size() <= k_longest_header_name &&
           bare.find_first_of(" :\n\r") == std::string_view::npos;
}

zRecord& cHttpSession::SetContentTypeHeader(zRecord& headers, const char* type) {
    headers.SetString("Content-Type", type == nullptr ? std::string() : std::string(type));
    return headers;
}

cHttpSession::cHttpSession() = default;

cHttpSession::cHttpSession(const cHttpSession& other)
    : std::enable_shared_from_this<cHttpSession>(other),
      m_logger(other.m_logger),
      m_use_basic_authentication(other.m_use_basic_authentication),
      m_user_name(other.m_user_name),
      m_password(other.m_password),
      m_settings(other.m_settings) {
    if (m_logger != nullptr) m_logger->AddRef();
}

cHttpSession& cHttpSession::operator=(const cHttpSession& other) {
    if (this == &other) return *this;
    cHttpSession::SetLogger(other.m_logger);
    m_use_basic_authentication = other.m_use_basic_authentication;
    m_user_name = other.m_user_name;
    m_password = other.m_password;
    m_settings = other.m_settings;
    return *this;
}

cHttpSession::~cHttpSession() {
    if (m_logger != nullptr) m_logger->Release();
}

void cHttpSession::SetLogger(cLogger* logger) {
    // First the new one: it may be the one that is set.
    if (logger != nullptr) logger->AddRef();
    cLogger* const before = std::exchange(m_logger, logger);
    if (before != nullptr) before->Release();
}

void cHttpSession::SetBasicHTTPAuthentication(const char* user, const char* password) {
    m_use_basic_authentication = 1;
    m_user_name = user;
    m_password = password;
}

void cHttpSession::LogElaspsedTime(std::int64_t start, std::int64_t end) {
    pennywort::run::guarded("cHttpSession", "telling the time of a request", [&] {
        if (pennywort::run::environment_variable("TarnhelmTimeHTTP").empty()) return;
        const auto elapsed = static_cast<long long>(static_cast<std::uint64_t>(end) -
                                                    static_cast<std::uint64_t>(start));
        zTraceManager::Default()->TraceNote("HTTP Elapsed Seconds %lld %s\n", elapsed,
                                            GetURL().CString());
    });
}

std::int32_t cHttpSession::Request_Error() const {
    // No virtual operation: hosts call these by their places, which a new one would move.
    const auto* const made = dynamic_cast<const pennywort::httpclient::cHttpSession_winhttp*>(this);
    return made == nullptr ? std::int32_t{k_error_none} : made->last_error();
}

void cHttpSession::SetSettings(const cHttpSessionSettings& settings) {
    m_settings = std::make_shared<const cHttpSessionSettings>(settings);
}

const cHttpSessionSettings& cHttpSession::settings() const {
    static const cHttpSessionSettings k_defaults;
    return m_settings == nullptr ? k_defaults : *m_settings;
}
