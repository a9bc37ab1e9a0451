// host/firewall/firewall_command.cpp - see the header for the contract.
#include "host/firewall/firewall_command.h"

#include <cstdio>

#include "core/text/numbers.h"
#include "firewall.h"
#include "host/app/exit_status.h"
#include "host/app/json.h"
#include "host/app/option_parser.h"
#include "host/firewall/firewall_words.h"

namespace pennywort::host {

const char* firewall_command::footer() const {
    return R"(Examples:
  pennywort firewall 8080
  pennywort firewall 8080 --ipv4
  pennywort firewall 8080 --json
Let in is a port that some reach, over IPv4 or IPv6; where one of the two is blocked, the line
says so.
On Linux the rules can be read by root only, or with CAP_NET_ADMIN.
Exit status: 0 let in, 3 blocked, 1 could not be told, 2 wrong arguments.)";
}

void firewall_command::add_options(option_parser& parser) {
    parser.add_option("port", m_port_text, "TCP port, 1 to 65535").required().type_name("PORT");
    const added_option ip4 =
        parser.add_flag("--ipv4", m_is_ip4, "Ask for connections over IPv4 alone");
    parser.add_flag("--ipv6", m_is_ip6, "Ask for connections over IPv6 alone").excludes(ip4);
    parser.add_flag("--json", m_is_json, "Print the answer as one line of JSON");
    parser.add_flag("--verbose", m_is_verbose, "Also print traces");
}

std::string firewall_command::take_arguments() {
    const auto port = text::whole_between<std::int32_t>(m_port_text, 1, 65535);
    if (!port) return m_port_text + " is not a port from 1 to 65535";
    m_port = *port;
    return {};
}

cFirewallFamily firewall_command::family() const {
    if (m_is_ip4) return cFirewallFamily::IPv4;
    return m_is_ip6 ? cFirewallFamily::IPv6 : cFirewallFamily::Any;
}

int firewall_command::run(const console& out) {
    const port_report report = ask_about_port(m_port, family());
    const std::string line = m_is_json ? json_line(report) : words_for(report);
    const bool is_written = std::fprintf(out.output(), "%s\n", line.c_str()) >= 0;
    if (std::fflush(out.output()) != 0 || !is_written) {
        std::fprintf(out.errors(), "pennywort: standard output takes nothing\n");
        return k_exit_failed;
    }
    return exit_status_of(report);
}

std::unique_ptr<command> make_firewall_command() { return std::make_unique<firewall_command>(); }

}  // namespace pennywort::host
