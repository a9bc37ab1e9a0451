// host/discover/discover_command.h - the command "discover": what services there are.
#pragma once

#include <memory>
#include <string>

#include "host/app/command.h"

namespace pennywort::host {

struct discover_options {
    std::string type;
    double seconds = 0;  // 0: until Ctrl-C
    bool is_json = false;
    bool is_local = false;
    bool is_each = false;  // every interface and protocol for itself
    bool is_verbose = false;
};

class discover_command : public command {
public:
    const char* name() const override { return "discover"; }
    const char* summary() const override { return "Show services on the local network"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_options.is_verbose; }
    int run(const console& out) override;

    const discover_options& options() const { return m_options; }

private:
    std::string m_type;
    std::string m_seconds;
    discover_options m_options;
};

std::unique_ptr<command> make_discover_command();

}  // namespace pennywort::host
