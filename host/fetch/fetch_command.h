// host/fetch/fetch_command.h - the command "fetch": its options and what they mean.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/app/command.h"
#include "host/app/http_options.h"
#include "host/fetch/fetch_options.h"

namespace pennywort::host {

class fetch_command : public command {
public:
    const char* name() const override { return "fetch"; }
    const char* summary() const override { return "Make an HTTP request"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_http.is_verbose(); }
    int run(const console& out) override;

    const fetch_options& options() const { return m_options; }

private:
    std::string take_verb();
    std::string take_headers();
    std::string take_body();
    std::string take_files();
    void add_header(const std::string& name, const std::string& value);

    std::optional<std::string> m_verb;
    std::optional<std::string> m_output;
    std::vector<std::string> m_headers;
    std::vector<std::string> m_data;
    http_arguments m_http;
    fetch_options m_options;
};

std::unique_ptr<command> make_fetch_command();

}  // namespace pennywort::host
