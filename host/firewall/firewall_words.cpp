// host/firewall/firewall_words.cpp - see the header for the contract.
#include "host/firewall/firewall_words.h"

#include "host/app/exit_status.h"
#include "host/app/json.h"
#include "host/live/live_guard.h"

namespace pennywort::host {

namespace {

// While it lives, this thread can ask.
class asking_thread {
public:
    asking_thread() { cFirewall::Startup(); }
    ~asking_thread() { cFirewall::Shutdown(); }
    asking_thread(const asking_thread&) = delete;
    asking_thread& operator=(const asking_thread&) = delete;
};

const char* state_name(cFirewallAnswer answer) {
    switch (answer) {
        case cFirewallAnswer::Open:
            return "open";
        case cFirewallAnswer::Blocked:
            return "blocked";
        case cFirewallAnswer::Unknown:
            break;
    }
    return "unknown";
}

}  // namespace

port_report ask_about_port(std::int32_t port) {
    const asking_thread asking;
    port_report report{port, cFirewallAnswer::Unknown, {}};
    zString why;
    report.answer = cFirewall::QueryTCPPort(port, why);
    report.why = why.CString();
    return report;
}

std::string words_for(const port_report& report) {
    const std::string port = "port " + std::to_string(report.port);
    switch (report.answer) {
        case cFirewallAnswer::Open:
            return port + " is not blocked";
        case cFirewallAnswer::Blocked:
            return port + " is blocked: " + report.why;
        case cFirewallAnswer::Unknown:
            break;
    }
    return "it cannot be told whether " + port + " is blocked: " + report.why;
}

std::string json_line(const port_report& report) {
    json line;
    line["port"] = report.port;
    line["state"] = state_name(report.answer);
    line["why"] = report.why;
    return json_text(line);
}

int exit_status_of(const port_report& report) {
    switch (report.answer) {
        case cFirewallAnswer::Open:
            return k_exit_fine;
        case cFirewallAnswer::Blocked:
            return k_exit_blocked;
        case cFirewallAnswer::Unknown:
            break;
    }
    return k_exit_failed;
}

std::string listening_warning(const std::string& address, const port_report& report) {
    if (report.answer != cFirewallAnswer::Blocked || is_loopback(address)) return {};
    return "others cannot come in: " + words_for(report);
}

}  // namespace pennywort::host
