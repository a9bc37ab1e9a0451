// host/firewall/firewall_command.h - pennywort firewall: whether others can reach a port.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "firewall.h"
#include "host/app/command.h"

namespace pennywort::host {

class firewall_command final : public command {
public:
    const char* name() const override { return "firewall"; }
    const char* summary() const override { return "Say whether the firewall blocks a port"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_is_verbose; }
    int run(const console& out) override;

    cFirewallFamily family() const;

private:
    std::string m_port_text;
    std::int32_t m_port = 0;
    bool m_is_ip4 = false;
    bool m_is_ip6 = false;
    bool m_is_json = false;
    bool m_is_verbose = false;
};

std::unique_ptr<command> make_firewall_command();

}  // namespace pennywort::host
