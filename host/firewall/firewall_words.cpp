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

const char* family_name(cFirewallFamily family) {
    return family == cFirewallFamily::IPv6 ? "IPv6" : "IPv4";
}

std::string over(cFirewallFamily family) {
    if (family == cFirewallFamily::Any) return {};
    return std::string(" over ") + family_name(family);
}

cFirewallAnswer query(port_report& report, cFirewallFamily family) {
    zString why;
    const cFirewallAnswer answer = cFirewall::QueryTCPPort(report.port, family, why);
    report.why = why.CString();
    return answer;
}

// Every interface has an IPv6 address of its own, so a port is seldom blocked over both.
void look_at_each_family(port_report& report) {
    for (const auto family : {cFirewallFamily::IPv4, cFirewallFamily::IPv6}) {
        if (query(report, family) != cFirewallAnswer::Blocked) continue;
        report.blocked_family = family;
        return;
    }
    report.why.clear();
}

std::string words_for_open(const port_report& report) {
    const std::string port = "port " + std::to_string(report.port) + " is not blocked";
    if (report.blocked_family == cFirewallFamily::Any) return port + over(report.family);
    const auto other = report.blocked_family == cFirewallFamily::IPv4 ? cFirewallFamily::IPv6
                                                                      : cFirewallFamily::IPv4;
    return port + over(other) + ", but" + over(report.blocked_family) + " it is: " + report.why;
}

}  // namespace

port_report ask_about_port(std::int32_t port, cFirewallFamily family) {
    const asking_thread asking;
    port_report report;
    report.port = port;
    report.family = family;
    report.answer = query(report, family);
    const bool is_any = family == cFirewallFamily::Any;
    if (is_any && report.answer == cFirewallAnswer::Open) look_at_each_family(report);
    return report;
}

// A socket on "::" takes connections of both.
cFirewallFamily family_of(const std::string& address) {
    if (address.find(':') == std::string::npos) return cFirewallFamily::IPv4;
    const bool is_any = address.find_first_not_of("0:") == std::string::npos;
    return is_any ? cFirewallFamily::Any : cFirewallFamily::IPv6;
}

std::string words_for(const port_report& report) {
    const std::string port = "port " + std::to_string(report.port);
    const std::string blocked = port + " is blocked" + over(report.family) + ": " + report.why;
    switch (report.answer) {
        case cFirewallAnswer::Open:
            return words_for_open(report);
        case cFirewallAnswer::Blocked:
            return blocked;
        case cFirewallAnswer::Unknown:
            break;
    }
    return "it cannot be told whether " + blocked;
}

std::string json_line(const port_report& report) {
    json line;
    line["port"] = report.port;
    line["state"] = state_name(report.answer);
    line["why"] = report.why;
    if (report.blocked_family != cFirewallFamily::Any) {
        line["blocked_over"] = family_name(report.blocked_family);
    }
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
    if (is_loopback(address)) return {};
    if (report.answer == cFirewallAnswer::Blocked) {
        return "others cannot come in: " + words_for(report);
    }
    if (report.blocked_family == cFirewallFamily::Any) return {};
    return "not all others can come in: " + words_for(report);
}

}  // namespace pennywort::host
