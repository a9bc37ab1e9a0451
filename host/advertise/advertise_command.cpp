// host/advertise/advertise_command.cpp - see the header for the contract.
#include "host/advertise/advertise_command.h"

#include <cstdint>

#include "bonjour.h"
#include "core/limits.h"
#include "core/text/numbers.h"
#include "core/text/utf8.h"
#include "host/app/exit_status.h"
#include "host/app/fail.h"
#include "host/app/option_parser.h"
#include "host/discover/service_words.h"
#include "host/system/interrupt.h"
#include "loam/message_loop.h"

namespace pennywort::host {

namespace {

// How long the loop waits for something to do before it looks whether it is to end: soon enough for
// who presses Ctrl-C, and seldom enough to cost nothing.
constexpr std::uint32_t k_advertising_microseconds = 200'000;

bool add_item(zString& record, const std::string& item) {
    const std::size_t equals = item.find('=');
    if (equals == std::string::npos) {
        return cBonjour::TXTAddItem(record, item.c_str(), nullptr, 0);
    }
    const std::string value = item.substr(equals + 1);
    return cBonjour::TXTAddItem(record, item.substr(0, equals).c_str(), value.data(),
                                static_cast<unsigned long>(value.size()));
}

}  // namespace

const char* advertise_command::footer() const {
    return R"(Examples:
  pennywort advertise http 8080
  pennywort advertise _osc._udp 9000 path=/mixer version=2 --name "Studio 2"
The service is advertised until Ctrl-C. Where another machine has the name, the system finds
another one; where this machine has it, Avahi refuses it.
Exit status: 0 ended by Ctrl-C, 1 failed, 2 wrong arguments.)";
}

void advertise_command::add_options(option_parser& parser) {
    parser.add_option("type", m_type, "Type of the service: http, _http._tcp, _osc._udp")
        .required();
    parser.add_option("port", m_port, "Port of the service, 1 to 65535").required();
    parser.add_option("items", m_items, "KEY=VALUE of its TXT record, or KEY alone");
    parser.add_option("--name", m_options.name, "Name of the service; the computer's without it")
        .type_name("NAME");
    parser.add_flag("--verbose", m_options.is_verbose, "Also print what the DNS-SD library says");
}

std::string advertise_command::take_arguments() {
    if (std::string wrong = take_service_type(m_type, m_options.type); !wrong.empty()) return wrong;
    const auto port = text::whole_between<std::int32_t>(m_port, 1, 65535);
    if (!port) return "PORT " + m_port + " is not a port from 1 to 65535";
    m_options.port = *port;
    if (m_options.name.size() > k_max_service_name) {
        return "--name is longer than 63 bytes: " + m_options.name;
    }
    if (!text::is_utf8(m_options.name)) return "--name is not UTF-8";
    return take_items();
}

std::string advertise_command::take_items() {
    for (const std::string& item : m_items) {
        if (add_item(m_options.text, item)) continue;
        return "the item " + item +
               " does not fit: a key of printable ASCII, 255 bytes in all, 65535 for all of them";
    }
    return {};
}

int advertise_command::run(const console& out) {
    const interrupt_watch interrupt;
    cBonjour bonjour;
    const long status =
        bonjour.Service_Advertise(m_options.name.c_str(), m_options.type.c_str(), m_options.port,
                                  m_options.text.CString(), m_options.text.Length());
    if (status != 0) return fail(out, dnssd_failure(bonjour));
    std::fprintf(out.output(), "advertising %s port %d\n", m_options.type.c_str(), m_options.port);
    std::fflush(out.output());
    while (interrupt.status() == 0 && !bonjour.HasLostDaemon()) {
        zMessageLoop::RunOnce(k_advertising_microseconds);
    }
    return interrupt.status() != 0
               ? k_exit_fine
               : fail(
                     out,
                     "the DNS-SD daemon has ended or refuses: the service is no longer advertised");
}

std::unique_ptr<command> make_advertise_command() { return std::make_unique<advertise_command>(); }

}  // namespace pennywort::host
