// host/call/call_command.h - the command "call": its options and what they mean.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/app/command.h"
#include "host/app/http_options.h"
#include "host/call/call.h"

namespace pennywort::host {

class call_command : public command {
public:
    const char* name() const override { return "call"; }
    const char* summary() const override { return "Call a server by XML-RPC"; }
    const char* footer() const override;
    std::string prepare(std::vector<std::string>& words) const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_http.is_verbose(); }
    int run(const console& out) override;

    // What the arguments ask for, once they have been taken.
    const call_options& options() const { return m_options; }

private:
    std::string take_values();
    // What is wrong follows the text itself.
    std::string take_value(const std::string& text);

    // The arguments as they were written.
    std::string m_method;
    std::vector<std::string> m_values;
    http_arguments m_http;

    call_options m_options;
};

std::unique_ptr<command> make_call_command();

}  // namespace pennywort::host
