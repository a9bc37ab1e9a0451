// host/call/call_command.cpp - see the header for the contract.
#include "host/call/call_command.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fstream>

#include "core/limits.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "host/call/call_argument.h"
#include "host/call/call_values.h"
#include "host/system/file_path.h"
#include "httpclient.h"
#include "loam/xmlrpc.h"

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

}  // namespace

const char* call_command::footer() const {
    return R"(Examples:
  pennywort call http://localhost:8080/RPC2 sample.add 5 7
  pennywort call http://localhost:8080/RPC2 deck.load '"intro"' '{"loop": true}'
  pennywort call http://localhost:8080/RPC2 store '{"$base64": "AAE="}' '{"$date": "20260131T14:08:55"}'
What follows the method are its arguments, each as JSON: a text needs its quotation marks. The result is one line of JSON.
Exit status: 0 a result, 1 failed, 2 wrong arguments, 3 the server's answer is a fault.)";
}

void call_command::add_options(CLI::App& parser) {
    parser.add_option("url", m_options.url, "The server")->required();
    parser.add_option("method", m_method, "What to call")->required();
    // Not as an option of the parser's: that takes a list in brackets for several values.
    parser.allow_extras();
    parser.final_callback([this, &parser] { m_values = parser.remaining(); });
    parser.add_option("--log", m_options.log, "Write a transcript of what was sent and received")
        ->type_name("FILE");
    parser.add_option("--timeout", m_timeout, "Longest wait of each step, in seconds")
        ->type_name("S")
        ->capture_default_str();
    parser
        .add_option("--cacert", m_options.ca_file,
                    "Trust these certificates instead of the system's")
        ->type_name("FILE");
    parser.add_flag("--verbose", m_is_verbose, "Also print traces");
}

std::string call_command::take_arguments() {
    if (cHttpSession::ValidateURL(m_options.url) != 0) {
        return m_options.url + " is no URL of a server: http:// or https:// and a host";
    }
    // Not with the URL, which would show them.
    if (has_user(m_options.url)) return "a user or password in the URL would not be sent";
    if (std::string wrong = take_timeout(); !wrong.empty()) return wrong;
    if (!m_options.ca_file.empty() && !can_be_read(m_options.ca_file)) {
        return "--cacert " + m_options.ca_file + ": the file cannot be read";
    }
    return take_values();
}

std::string call_command::take_timeout() {
    const auto seconds = text::decimal(m_timeout);
    if (!seconds || *seconds < k_shortest_wait || *seconds > k_max_timeout_seconds) {
        return "--timeout " + m_timeout + " is not a time from 0.001 to " +
               std::to_string(static_cast<int>(k_max_timeout_seconds)) + " seconds";
    }
    m_options.timeout = *seconds;
    return {};
}

std::string call_command::take_values() {
    m_options.request = std::make_shared<zRecord>();
    if (zXMLRPC(*m_options.request).SetCall(m_method.c_str()) != 0) {
        return "there is no memory for the call";
    }
    for (const std::string& text : m_values) {
        const std::string wrong = take_value(text);
        if (!wrong.empty()) return text + wrong;
    }
    return {};
}

std::string call_command::take_value(const std::string& text) {
    if (text.size() > 1 && text[0] == '-' && !text::is_digit(text[1])) return " is no option";
    json value;
    std::string wrong = read_argument(text, value);
    if (!wrong.empty()) return wrong;
    wrong = set_value(zXMLRPC(*m_options.request).AddParam(), value);
    return wrong.empty() ? wrong : ": " + wrong;
}

int call_command::run(const console& out) { return call(m_options, out); }

std::unique_ptr<command> make_call_command() { return std::make_unique<call_command>(); }

}  // namespace pennywort::host
