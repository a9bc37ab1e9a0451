// host/app/http_options.h - what the commands that make HTTP requests have in common: the URL, and
// the options of the connection and of the transcript.
#pragma once

#include <optional>
#include <string>

#include "host/system/outcome.h"

class cLogger;

namespace pennywort::host {

class option_parser;

struct http_options {
    std::string url;
    std::string log;      // a file for the transcript; empty: none
    std::string ca_file;  // empty: the system's certificates
    double timeout = 30;  // seconds, of each wait
};

// The texts of these options while a command line is read.
class http_arguments {
public:
    // `url_is` stands in the help. Both must outlive the parser.
    void add_url(option_parser& parser, http_options& options, const char* url_is);
    void add_options(option_parser& parser);
    // Returns what is wrong, in one line; an empty text if nothing is.
    std::string take(http_options& options) const;
    bool is_verbose() const { return m_is_verbose; }

private:
    std::string take_files(http_options& options) const;

    std::string m_timeout = "30";
    std::optional<std::string> m_log;
    std::optional<std::string> m_ca_file;
    bool m_is_verbose = false;
};

// The transcript of a request, if one is wanted.
class wire_log {
public:
    wire_log() = default;
    ~wire_log();
    wire_log(const wire_log&) = delete;
    wire_log& operator=(const wire_log&) = delete;

    // Of each entry at most `maximum` bytes are kept. Without a path nothing is opened.
    outcome open(const std::string& path, int maximum);
    // Null without one.
    cLogger* logger() const { return m_logger; }
    // Says whether all of it could be written: the logger itself tells nobody.
    outcome close();

private:
    cLogger* m_logger = nullptr;
};

// Whether an error of a session says that a server could not be reached at all.
bool is_no_connection(int error);

// Words for a result of a session that is none of a response's status; empty for one that is no
// failure of the connection. `error` is what cHttpSession::Request_Error() returns, and `has_head`
// whether a response had begun.
std::string words_for_request(long result, int error, bool has_head);

}  // namespace pennywort::host
