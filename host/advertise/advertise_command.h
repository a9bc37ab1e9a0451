// host/advertise/advertise_command.h - the command "advertise": tells the local network of a
// service.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/app/command.h"
#include "loam/string.h"

namespace pennywort::host {

struct advertise_options {
    std::string type;
    std::int32_t port = 0;
    std::string name;  // empty: the computer's
    zString text;      // the TXT record
    bool is_verbose = false;
};

class advertise_command : public command {
public:
    const char* name() const override { return "advertise"; }
    const char* summary() const override { return "Tell the local network of a service"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_options.is_verbose; }
    int run(const console& out) override;

    const advertise_options& options() const { return m_options; }

private:
    std::string take_items();

    std::string m_type;
    std::string m_port;
    std::vector<std::string> m_items;
    advertise_options m_options;
};

std::unique_ptr<command> make_advertise_command();

}  // namespace pennywort::host
