// host/app/http_options.cpp - see the header for the contract.
#include "host/app/http_options.h"

#include <fstream>
#include <utility>

#include "core/limits.h"
#include "core/text/numbers.h"
#include "host/app/option_parser.h"
#include "host/output/output_file.h"
#include "host/system/file_path.h"
#include "httpclient.h"
#include "logger.h"

namespace pennywort::host {

namespace {

// 0 would mean to wait for ever.
constexpr double k_shortest_wait = 0.001;

bool has_user(const std::string& url) {
    const std::size_t host = url.find("://") + 3;
    return url.substr(host, url.find_first_of("/?#", host) - host).find('@') != std::string::npos;
}

// A folder can be opened, but not read.
bool can_be_read(const std::string& path) {
    std::ifstream file(file_path(path), std::ios::binary);
    file.peek();
    return file.is_open() && !file.bad();
}

std::string why_not_url(const std::string& url) {
    if (cHttpSession::ValidateURL(url) != 0) {
        return url + " is no URL of HTTP: http:// or https://, and a host";
    }
    // Not with the URL, which would show them.
    return has_user(url) ? "a user or password in the URL would not be sent" : std::string();
}

// Of a connection that could not be made, or that ended before there was a response.
const char* words_for_error(int error) {
    switch (error) {
        case cHttpSession::k_error_none:
            return "a header cannot be sent";
        case cHttpSession::k_error_no_memory:
            return "out of memory";
        case cHttpSession::k_error_timed_out:
            return "no connection in time";
        case cHttpSession::k_error_bad_url:
            return "the URL or a header is none that can be sent";
        case cHttpSession::k_error_unknown_name:
            return "the name of the host is not known";
        case cHttpSession::k_error_no_connection:
            return "no connection: nobody listens there, or the host is out of reach";
        case cHttpSession::k_error_bad_response:
            return "what came is no HTTP response";
        case cHttpSession::k_error_too_many_redirects:
            return "more redirects than are followed";
        case cHttpSession::k_error_no_tls:
            return "the server speaks no TLS on that port, or none that is spoken here";
        case cHttpSession::k_error_not_trusted:
            return "the server's certificate is not trusted";
        default:
            return "the connection broke before a response had come";
    }
}

}  // namespace

bool is_no_connection(int error) {
    return error == cHttpSession::k_error_unknown_name ||
           error == cHttpSession::k_error_no_connection || error == cHttpSession::k_error_no_tls ||
           error == cHttpSession::k_error_not_trusted;
}

void http_arguments::add_url(option_parser& parser, http_options& options, const char* url_is) {
    parser.add_option("url", options.url, url_is).required();
}

void http_arguments::add_options(option_parser& parser) {
    parser.add_option("--log", m_log, "Write a transcript of what was sent and received")
        .type_name("FILE");
    parser.add_option("--timeout", m_timeout, "Longest wait of each step, in seconds")
        .type_name("S")
        .shows_default();
    parser.add_option("--cacert", m_ca_file, "Trust these certificates instead of the system's")
        .type_name("FILE");
    parser.add_flag("--verbose", m_is_verbose, "Also print traces");
}

std::string http_arguments::take(http_options& options) const {
    if (std::string wrong = why_not_url(options.url); !wrong.empty()) return wrong;
    const auto seconds = text::decimal_between(m_timeout, k_shortest_wait, k_max_timeout_seconds);
    if (!seconds) {
        return "--timeout " + m_timeout + " is not a time from 0.001 to " +
               std::to_string(static_cast<int>(k_max_timeout_seconds)) + " seconds";
    }
    options.timeout = *seconds;
    return take_files(options);
}

// An empty name is no wish for nothing: a variable of the user's script is not set.
std::string http_arguments::take_files(http_options& options) const {
    if (m_log == "" || m_ca_file == "") {
        return std::string(m_log == "" ? "--log" : "--cacert") + " '' names no file";
    }
    if (m_log == "-") return "--log - : a transcript goes into a file";
    options.log = m_log.value_or("");
    options.ca_file = m_ca_file.value_or("");
    if (!options.ca_file.empty() && !can_be_read(options.ca_file)) {
        return "--cacert " + options.ca_file + ": the file cannot be read";
    }
    return {};
}

wire_log::~wire_log() {
    if (m_logger != nullptr) m_logger->Release();
}

outcome wire_log::open(const std::string& path, int maximum) {
    if (path.empty()) return outcome::fine();
    const outcome writable = can_be_written(path);
    if (writable.ok()) m_logger = new cLogger(path.c_str(), maximum);
    return writable;
}

outcome wire_log::close() {
    if (m_logger == nullptr) return outcome::fine();
    const bool is_whole = !m_logger->HasFailed();
    const std::string path = m_logger->FilePath();
    std::exchange(m_logger, nullptr)->Release();
    return is_whole ? outcome::fine() : outcome::failed("cannot write all of " + path);
}

std::string words_for_request(long result, int error, bool has_head) {
    switch (result) {
        case cHttpSession::k_timed_out:
            return has_head ? "the rest of the response did not come in time"
                            : "no response came in time";
        case cHttpSession::k_connect_failed:
            return "the URL has no host or no port that can be asked";
        case cHttpSession::k_receive_failed:
        case cHttpSession::k_write_failed:
            if (has_head && error != cHttpSession::k_error_no_memory) {
                return "the response broke off before its end";
            }
            // The server that was asked has answered; this is about the one that it named.
            return std::string(is_no_connection(error) ? "after a redirect: " : "") +
                   words_for_error(error);
        case cHttpSession::k_send_failed:
            return words_for_error(error);
        case cHttpSession::k_incomplete:
            return "less came than the response had announced";
        case cHttpSession::k_session_failed:
            if (error == cHttpSession::k_error_not_supported) {
                return "--cacert: this system's HTTP service trusts the system's certificates "
                       "alone";
            }
            return "the HTTP service of this system could not be opened";
        default:
            return {};
    }
}

}  // namespace pennywort::host
