// host/fetch/fetch_command.cpp - see the header for the contract.
#include "host/fetch/fetch_command.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>
#include <system_error>

#include "core/text/ascii.h"
#include "host/app/option_parser.h"
#include "host/fetch/fetch.h"
#include "host/system/file_path.h"
#include "host/system/standard_input.h"
#include "httpclient.h"

namespace pennywort::host {

namespace {

struct verb_name {
    const char* name;
    std::uint32_t verb;
};

constexpr verb_name k_verbs[] = {{"GET", cHttpSession::k_get},
                                 {"POST", cHttpSession::k_post},
                                 {"PUT", cHttpSession::k_put},
                                 {"PATCH", cHttpSession::k_patch},
                                 {"DELETE", cHttpSession::k_delete}};

// The length of a request's body is told in 32 bits. No more than that is read, of what has no end
// either.
constexpr std::size_t k_most_body = std::numeric_limits<std::uint32_t>::max();

// `read` puts bytes into a piece and returns how many; fewer than fit at the end.
template <typename function>
void read_all(std::string& into, function read) {
    std::array<char, 64 * 1024> piece;
    std::size_t count = piece.size();
    while (count == piece.size() && into.size() <= k_most_body) {
        count = read(piece.data(), piece.size());
        into.append(piece.data(), count);
    }
}

// False for what is no file, too: a folder can be opened, and cannot be read.
bool read_file(const std::string& name, std::string& into) {
    std::ifstream file(file_path(name), std::ios::binary);
    if (!file) return false;
    read_all(into, [&file](char* piece, std::size_t size) {
        file.read(piece, static_cast<std::streamsize>(size));
        return static_cast<std::size_t>(file.gcount());
    });
    return !file.bad();
}

bool read_standard_input(std::string& into) {
    std::FILE* const input = standard_input();
    read_all(into,
             [input](char* piece, std::size_t size) { return std::fread(piece, 1, size, input); });
    return std::ferror(input) == 0;
}

// Whether or not there is one yet.
bool is_same_file(const std::string& one, const std::string& other) {
    if (one.empty() || other.empty()) return false;
    const auto whole = [](const std::string& name) {
        std::error_code failed;
        const auto path = std::filesystem::absolute(file_path(name), failed);
        const auto real = std::filesystem::weakly_canonical(path, failed);
        return failed ? path : real;
    };
    return whole(one) == whole(other);
}

}  // namespace

const char* fetch_command::footer() const {
    return R"(Examples:
  pennywort fetch https://example.com -o page.html
  pennywort fetch http://localhost:8080/api -d '{"on":true}' -H 'Content-Type: application/json'
  pennywort fetch http://localhost:8080/api -X PUT -d @body.bin --log wire.txt
Exit status: 0 done, 1 failed here, 2 wrong arguments, 3 no connection, 4 no response in time,
5 no whole response, 6 the server refused (a status outside 200 to 299; its body is written),
129, 130 or 143 interrupted.)";
}

void fetch_command::add_options(option_parser& parser) {
    m_http.add_url(parser, m_options.http, "What to fetch");
    parser.add_option("-X,--request", m_verb, "GET, POST, PUT, PATCH or DELETE").type_name("VERB");
    parser.add_option("-H,--header", m_headers, "A header, \"Name: value\"; may be repeated")
        .type_name("HEADER")
        .takes_one();
    parser
        .add_option("-d,--data", m_data,
                    "The body, @FILE, or @- for standard input; makes it a POST")
        .type_name("DATA")
        .has_one_value();
    parser
        .add_option("-o,--output", m_output,
                    "Where the body goes; standard output without it, and for -")
        .type_name("FILE");
    m_http.add_options(parser);
}

std::string fetch_command::take_arguments() {
    if (std::string wrong = m_http.take(m_options.http); !wrong.empty()) return wrong;
    // The body last: it may be what somebody types.
    for (const auto take : {&fetch_command::take_verb, &fetch_command::take_headers,
                            &fetch_command::take_files, &fetch_command::take_body}) {
        std::string wrong = (this->*take)();
        if (!wrong.empty()) return wrong;
    }
    return {};
}

std::string fetch_command::take_verb() {
    const std::string wanted = m_verb.value_or(m_data.empty() ? "GET" : "POST");
    for (const auto& [name, verb] : k_verbs) {
        if (wanted != name) continue;
        m_options.verb = verb;
        m_options.verb_name = name;
        return {};
    }
    return "-X '" + wanted + "' is not GET, POST, PUT, PATCH or DELETE";
}

std::string fetch_command::take_headers() {
    for (const std::string& header : m_headers) {
        const std::size_t colon = header.find(':');
        if (colon == std::string::npos) return "-H " + header + " has no colon";
        const std::string name(text::trimmed(header.substr(0, colon)));
        const std::string value(text::trimmed(std::string_view(header).substr(colon + 1)));
        if (!cHttpSession::HeaderNameIsValid(name)) return "-H " + header + " has no valid name";
        if (value.find_first_of("\r\n") != std::string::npos) {
            return "-H " + name + " has a line end in its value";
        }
        add_header(name, value);
    }
    return {};
}

// A record holds one value of a name; several of them are one list.
void fetch_command::add_header(const std::string& name, const std::string& value) {
    for (auto& [known, values] : m_options.headers) {
        if (!text::equal_ignoring_case(known, name)) continue;
        values += (text::equal_ignoring_case(name, "Cookie") ? "; " : ", ") + value;
        return;
    }
    m_options.headers.emplace_back(name, value);
}

std::string fetch_command::take_files() {
    if (m_output == "") return "-o '' names no file";
    m_options.output = m_output.value_or("-");
    if (m_options.output == "-") m_options.output.clear();
    const bool is_one = is_same_file(m_options.output, m_options.http.log);
    return is_one ? "-o and --log name the same file" : "";
}

std::string fetch_command::take_body() {
    m_options.has_body = !m_data.empty();
    if (m_data.empty()) return {};
    const std::string& data = m_data.front();
    if (data.empty() || data.front() != '@') {
        m_options.body = data;
        return {};
    }
    const bool is_read = data == "@-" ? read_standard_input(m_options.body)
                                      : read_file(data.substr(1), m_options.body);
    if (!is_read) return "-d " + data + ": cannot be read";
    if (m_options.body.size() > k_most_body) return "-d " + data + ": longer than 4 GB";
    return {};
}

int fetch_command::run(const console& out) { return fetch(m_options, out); }

std::unique_ptr<command> make_fetch_command() { return std::make_unique<fetch_command>(); }

}  // namespace pennywort::host
