// host/call/call_command.cpp - see the header for the contract.
#include "host/call/call_command.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "core/text/ascii.h"
#include "host/app/option_parser.h"
#include "host/call/call_argument.h"
#include "host/call/call_values.h"
#include "loam/xmlrpc.h"

namespace pennywort::host {

namespace {

// No value begins with a dash but a number.
bool looks_like_option(const std::string& text) {
    return text.size() > 1 && text[0] == '-' && !text::is_digit(text[1]);
}

}  // namespace

const char* call_command::footer() const {
    return R"(Examples:
  pennywort call http://localhost:8080/RPC2 sample.add 5 7
  pennywort call http://localhost:8080/RPC2 deck.load '"intro"' '{"loop": true}'
  pennywort call http://localhost:8080/RPC2 store '{"$base64": "AAE="}' '{"$date": "20260131T14:08:55"}'
What follows the method are its arguments, each as JSON: a text needs its quotation marks. The result is one line of JSON.
Exit status: 0 a result, 1 failed, 2 wrong arguments, 3 the server's answer is a fault, 129, 130 or 143 interrupted.)";
}

// The parser knows a number from an option without "--", which it would take for the command's end.
std::string call_command::prepare(std::vector<std::string>& words) const {
    const auto dashes = std::find(words.begin(), words.end(), "--");
    if (dashes == words.end()) return {};
    const auto option = std::find_if(dashes + 1, words.end(), looks_like_option);
    if (option != words.end()) return *option + " behind -- is no JSON";
    words.erase(dashes);
    return {};
}

void call_command::add_options(option_parser& parser) {
    m_http.add_url(parser, m_options.http, "The server");
    parser.add_option("method", m_method, "What to call").required();
    // Not as an option, which would take a list in brackets for several values.
    parser.add_words(m_values, "[ARG]...");
    m_http.add_options(parser);
}

std::string call_command::take_arguments() {
    std::string wrong = m_http.take(m_options.http);
    return wrong.empty() ? take_values() : wrong;
}

std::string call_command::take_values() {
    if (m_method.empty()) return "METHOD is empty";
    if (!is_for_xml(m_method)) return "METHOD holds a character that XML cannot";
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
    if (looks_like_option(text)) return " is no option";
    json value;
    std::string wrong = read_argument(text, value);
    if (!wrong.empty()) return wrong;
    wrong = set_value(zXMLRPC(*m_options.request).AddParam(), value);
    return wrong.empty() ? wrong : ": " + wrong;
}

int call_command::run(const console& out) { return call(m_options, out); }

std::unique_ptr<command> make_call_command() { return std::make_unique<call_command>(); }

}  // namespace pennywort::host
