// host/live/live.cpp - see the header for the contract.
#include "host/live/live.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "core/limits.h"
#include "host/advertise/advertiser.h"
#include "host/app/browser_runtime.h"
#include "host/app/exit_status.h"
#include "host/app/fail.h"
#include "host/firewall/firewall_words.h"
#include "host/live/live_control.h"
#include "host/live/live_display.h"
#include "host/live/live_guard.h"
#include "host/live/live_handler.h"
#include "host/live/live_picture.h"
#include "host/system/interrupt.h"
#include "host/system/own_addresses.h"
#include "host/ws/page_feed.h"
#include "host/ws/ws_feed.h"
#include "httpserver.h"
#include "loam/message_loop.h"
#include "loam/trace.h"

namespace pennywort::host {

namespace {

// How long the loop waits for work before it checks whether to end.
constexpr std::uint32_t k_live_loop_microseconds = 20'000;

constexpr std::int32_t k_receive_bytes = 64 * 1024;
constexpr std::int32_t k_idle_ms = 60'000;

cHttpServerSettings server_settings_of(const live_options& options) {
    cHttpServerSettings settings;
    settings.bindAddress = zString(options.listen);
    settings.backlog = k_max_control_connections;
    settings.maxConnections = k_max_control_connections;
    settings.maxRequestBytes = k_max_control_request_bytes;
    settings.idleTimeoutMs = k_idle_ms;
    settings.isStrict = true;
    settings.dropUntrustedWhenFull = true;
    return settings;
}

bool is_every_address(const std::string& listen) { return listen == "0.0.0.0" || listen == "::"; }

std::string page_at(std::string name, std::int32_t port, const std::string& token) {
    if (name.find(':') != std::string::npos) name = "[" + name + "]";
    const std::string base = "http://" + name + ":" + std::to_string(port) + "/";
    return token.empty() ? base : base + "?token=" + token;
}

// A server that listens on every address listens on the loopback address too.
std::string address_of(const live_options& options, std::int32_t port, const std::string& token) {
    if (options.listen == "0.0.0.0") return page_at("127.0.0.1", port, token);
    if (options.listen == "::") return page_at("::1", port, token);
    return page_at(options.listen, port, token);
}

// The address on standard output is a loopback one, which other machines cannot use.
void tell_others(const live_options& options, const console& out, std::int32_t port,
                 const std::string& token) {
    if (!is_every_address(options.listen)) return;
    for (const std::string& name : own_addresses()) {
        const bool is_six = name.find(':') != std::string::npos;
        if (is_six && options.listen != "::") continue;
        std::fprintf(out.errors(), "pennywort: from another machine: %s\n",
                     page_at(name, port, token).c_str());
    }
}

// While it lives, traces go to the control page, and with --verbose to the console too.
class trace_tap {
public:
    trace_tap(live_control& control, const console& out, bool verbose) {
        zTraceManager::Default()->SetSink([&control, &out, verbose](const char* message) {
            control.traces().add("trace", message);
            if (verbose) std::fprintf(out.errors(), "%s\n", message);
        });
    }
    ~trace_tap() { zTraceManager::Default()->SetSink({}); }
    trace_tap(const trace_tap&) = delete;
    trace_tap& operator=(const trace_tap&) = delete;
};

// Without it nobody finds the page, or gets in.
void tell_address(const console& out, const std::string& address) {
    // A terminal takes the line at once, so that only the first of the two calls reports a failure.
    const bool is_written = std::fprintf(out.output(), "%s\n", address.c_str()) >= 0;
    if (std::fflush(out.output()) == 0 && is_written && out.has_output()) return;
    std::fprintf(out.errors(),
                 "pennywort: standard output takes nothing; the control page is at %s\n",
                 address.c_str());
}

std::string listen_failure(const live_options& options, zStatus status) {
    const std::string where = options.listen + " port " + std::to_string(options.port);
    return status == zSocket::k_address_in_use
               ? where + " is taken: give another one with --port, or 0 for any"
               : "cannot listen on " + where +
                     ": this machine has no such address, or you have no right to the port";
}

// The page works on this machine all the same, so this is no reason to end.
void warn_of_firewall(const live_options& options, const console& out, std::int32_t port) {
    if (is_loopback(options.listen)) return;
    const std::string warning =
        listening_warning(options.listen, ask_about_port(port, family_of(options.listen)));
    if (!warning.empty()) std::fprintf(out.errors(), "pennywort: %s\n", warning.c_str());
}

// The server, which answers from its first moment.
class live_server {
public:
    explicit live_server(const live_options& options)
        : m_start(new live_start_handler, [](live_start_handler* one) { one->Release(); }),
          m_server(options.port, k_receive_bytes, server_settings_of(options)) {
        m_server.InstallHandler(*m_start);
    }

    zStatus status() { return m_server.ListenStatus(); }
    std::int32_t port() { return m_server.ListenPort(); }
    void begin(live_control& control, const std::string& token) {
        auto* handler = new live_handler(control, live_guard(port(), token));
        m_server.InstallHandler(*handler);
        handler->Release();
        m_start->end();
    }

private:
    const std::unique_ptr<live_start_handler, void (*)(live_start_handler*)> m_start;
    cHttpServer m_server;
};

// Advertises the control page, unless only this machine can reach it. The page works without
// DNS-SD.
std::optional<advertiser> advertise(const live_options& options, const console& out,
                                    std::int32_t port) {
    if (is_loopback(options.listen) || !options.is_advertised) return std::nullopt;
    advertised_service page{"the control page", "_http._tcp.", port, {}};
    cBonjour::TXTAddItem(page.text, "path", "/", 1);
    return std::optional<advertiser>(
        std::in_place, std::move(page), [&out](const std::string& line) {
            std::fprintf(out.errors(), "pennywort: %s\n", line.c_str());
        });
}

// The console, too, says what becomes of the connection: whoever runs the program may watch only
// that.
std::unique_ptr<page_feed> open_feed(const live_options& options, const console& out,
                                     live_control& control) {
    if (options.feed.url.empty()) return nullptr;
    auto socket = make_feed(ws_transport::managed);
    if (socket == nullptr) throw std::bad_alloc();
    const auto tell = [&out, &control](page_feed::saying what, const std::string& line) {
        control.events().add("feed", line);
        if (what == page_feed::saying::script_error) return;
        std::fprintf(out.errors(), "pennywort: %s\n", line.c_str());
        std::fflush(out.errors());
    };
    auto feed =
        std::make_unique<page_feed>(options.feed, feed_kind::for_ever, std::move(socket), tell);
    feed->open();
    return feed;
}

void follow_feed(page_feed* feed, live_display& display) {
    if (feed == nullptr) return;
    feed->step(run::monotonic_clock::system().now(), display.takes_messages(),
               [&display](const std::string& body, auto returned) {
                   return display.execute(body, std::move(returned));
               });
}

// Whoever started the program may not have opened the control page, where all else is told.
class start_report {
public:
    explicit start_report(const console& out) : m_out(out) {}

    void look_at(const live_display& display) {
        if (m_is_told) return;
        const std::string failure = display.start_failure();
        if (failure.empty()) return;
        std::fprintf(m_out.errors(), "pennywort: nothing is on air yet: %s\n", failure.c_str());
        m_is_told = true;
    }

private:
    const console& m_out;
    bool m_is_told = false;
};

// The display and what it shows, until the user wants the end. Its server goes before it, so that
// no request finds it gone.
int show(const live_options& options, const console& out, std::unique_ptr<live_server> server,
         const interrupt_watch& interrupt) {
    live_pictures pictures;
    live_display display(options, pictures);
    live_control control(display, pictures, {options.urls.begin() + 1, options.urls.end()});
    const trace_tap traces(control, out, options.is_verbose);
    if (!display.open(control)) return fail(out, "the display cannot be opened");
    display.look_after();
    const std::string token = is_loopback(options.listen) ? std::string() : random_token();
    server->begin(control, token);
    auto advertised = advertise(options, out, server->port());
    tell_address(out, address_of(options, server->port(), token));
    warn_of_firewall(options, out, server->port());
    tell_others(options, out, server->port(), token);
    const auto feed = open_feed(options, out, control);
    start_report report(out);
    while (interrupt.status() == 0) {
        zMessageLoop::RunOnce(k_live_loop_microseconds);
        display.look_after();
        report.look_at(display);
        if (advertised) advertised->look_after();
        follow_feed(feed.get(), display);
    }
    // First of all: nobody is to be sent to a page that has gone.
    advertised.reset();
    server.reset();
    display.close();
    return k_exit_fine;
}

}  // namespace

int live(const live_options& options, const console& out) {
    const interrupt_watch interrupt;
    // The port comes first: the start of the runtime is not worth its time without one.
    auto server = std::make_unique<live_server>(options);
    const zStatus listening = server->status();
    if (listening != 0) return fail(out, listen_failure(options, listening));
    const browser_runtime browser(pump_pacing::on_request, options.uses_gpu);
    if (!browser.up()) return fail(out, browser.failure());
    return show(options, out, std::move(server), interrupt);
}

}  // namespace pennywort::host
