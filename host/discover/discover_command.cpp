// host/discover/discover_command.cpp - see the header for the contract.
#include "host/discover/discover_command.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "bonjour.h"
#include "core/limits.h"
#include "core/run/deadline.h"
#include "core/text/numbers.h"
#include "host/app/exit_status.h"
#include "host/app/fail.h"
#include "host/app/option_parser.h"
#include "host/discover/service_words.h"
#include "host/system/interrupt.h"
#include "host/system/output_reader.h"
#include "loam/message_loop.h"
#include "loam/observer.h"

namespace pennywort::host {

namespace {

// How long the loop waits for something to do before it looks whether it is to end: soon enough for
// who presses Ctrl-C, and seldom enough to cost nothing.
constexpr std::uint32_t k_discovery_microseconds = 200'000;

run::deadline end_of(const discover_options& options) {
    if (options.seconds == 0) return run::deadline::never();
    return run::deadline(
        std::chrono::nanoseconds(static_cast<std::int64_t>(options.seconds * 1e9)));
}

// Writes each service as it comes. Its lines go out at once: whoever reads them is waiting.
class service_printer {
public:
    service_printer(const discover_options& options, const console& out)
        : m_is_json(options.is_json),
          m_out(out),
          m_code(zObserverHandler::NewCode()),
          m_observer(m_code, [this](const zRecord& record, std::uint64_t) { print(record); }) {}

    std::int32_t code() const { return m_code; }
    // A reader that has closed the output wants no more of it, which is no failure. It may have
    // left behind the last service that there is: no line would tell.
    bool is_wanted() const { return !m_has_failed && has_reader(m_out.output()); }
    bool has_failed() const { return m_has_failed && has_reader(m_out.output()); }

private:
    void print(const zRecord& record) {
        const std::string line =
            (m_is_json ? json_text(service_json(record)) : service_line(record)) + "\n";
        const bool is_written =
            std::fwrite(line.data(), 1, line.size(), m_out.output()) == line.size();
        m_has_failed = std::fflush(m_out.output()) != 0 || !is_written || m_has_failed;
    }

    const bool m_is_json;
    const console& m_out;
    bool m_has_failed = false;
    const std::int32_t m_code;
    const zObserverHandler m_observer;
};

}  // namespace

const char* discover_command::footer() const {
    return R"(Examples:
  pennywort discover http
  pennywort discover _ndi._tcp --seconds 3 --json
Each line is a service that was found or is gone: its name, host:port and TXT record.
Ctrl-C ends, and so does a reader of the output that closes it.
Exit status: 0 ended as asked, 1 failed, 2 wrong arguments.)";
}

void discover_command::add_options(option_parser& parser) {
    parser.add_option("type", m_type, "Type of the services: http, _http._tcp, _osc._udp")
        .required();
    parser.add_option("--seconds", m_seconds, "How long to look; until Ctrl-C without it")
        .type_name("N");
    parser.add_flag("--json", m_options.is_json, "Print each service as a line of JSON");
    parser.add_flag("--local", m_options.is_local,
                    "Only services of this machine; Avahi refuses that");
    parser.add_flag("--each", m_options.is_each,
                    "A line for each interface on which a service is seen");
    parser.add_flag("--verbose", m_options.is_verbose, "Also print what the DNS-SD library says");
}

std::string discover_command::take_arguments() {
    if (std::string wrong = take_service_type(m_type, m_options.type); !wrong.empty()) return wrong;
    if (m_seconds.empty()) return {};
    const auto seconds = text::whole_between<std::int32_t>(
        m_seconds, 1, static_cast<std::int32_t>(k_max_timeout_seconds));
    if (!seconds) return "--seconds " + m_seconds + " is not a number from 1 to 3600";
    m_options.seconds = *seconds;
    return {};
}

int discover_command::run(const console& out) {
    const interrupt_watch interrupt;
    const service_printer printer(m_options, out);
    cBonjour bonjour;
    const unsigned long flags = m_options.is_local ? 1 : 0;
    const long status =
        m_options.is_each
            ? bonjour.StartObservingEach(printer.code(), m_options.type.c_str(), flags)
            : bonjour.StartObservingOnce(printer.code(), m_options.type.c_str(), flags);
    if (status != 0) return fail(out, dnssd_failure(bonjour));
    const run::deadline end = end_of(m_options);
    while (interrupt.status() == 0 && !end.has_passed() && printer.is_wanted()) {
        if (bonjour.HasLostDaemon()) return fail(out, "the DNS-SD daemon has ended");
        const auto left = std::min<std::int64_t>(k_discovery_microseconds, end.left_us());
        zMessageLoop::RunOnce(static_cast<std::uint32_t>(left));
    }
    return printer.has_failed() ? fail(out, "standard output takes nothing") : k_exit_fine;
}

std::unique_ptr<command> make_discover_command() { return std::make_unique<discover_command>(); }

}  // namespace pennywort::host
