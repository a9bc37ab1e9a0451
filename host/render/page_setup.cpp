// host/render/page_setup.cpp - see the header for the contract.
#include "host/render/page_setup.h"

#include <algorithm>
#include <utility>

#include "core/text/ascii.h"
#include "host/app/json.h"
#include "host/render/clock_fault.h"
#include "host/render/media_fault.h"

namespace pennywort::host {

namespace {

class requests {
public:
    void add(std::string option, const char* method, const json& parameters) {
        m_all.push_back({std::move(option), method, json_text(parameters)});
    }
    // A script in each document, before its own ones, that tells something by a binding.
    void watch(const char* binding, const char* script) {
        add("", "Runtime.addBinding", {{"name", binding}});
        add("", "Page.addScriptToEvaluateOnNewDocument", {{"source", script}});
    }
    std::vector<inspector_request> take() { return std::move(m_all); }

private:
    std::vector<inspector_request> m_all;
};

void add_media(const page_settings& settings, requests& out) {
    if (settings.media.empty()) return;
    json parameters{{"media", ""}, {"features", json::array()}};
    for (const auto& [name, value] : settings.media) {
        if (name.empty()) {
            parameters["media"] = value;
        } else {
            parameters["features"].push_back({{"name", name}, {"value", value}});
        }
    }
    out.add("--media", "Emulation.setEmulatedMedia", parameters);
}

void add_user(const page_settings& settings, requests& out) {
    if (!settings.locale.empty()) {
        std::string icu = settings.locale;
        std::replace(icu.begin(), icu.end(), '-', '_');
        out.add("--locale " + settings.locale, "Emulation.setLocaleOverride", {{"locale", icu}});
    }
    if (!settings.timezone.empty()) {
        out.add("--timezone " + settings.timezone, "Emulation.setTimezoneOverride",
                {{"timezoneId", settings.timezone}});
    }
    if (!settings.user_agent.empty()) {
        json parameters{{"userAgent", settings.user_agent}};
        if (!settings.locale.empty()) parameters["acceptLanguage"] = settings.locale;
        out.add("--user-agent", "Emulation.setUserAgentOverride", parameters);
    }
}

void add_network(const page_settings& settings, const std::vector<std::string>& urls,
                 requests& out) {
    if (!settings.headers.empty()) {
        json headers = json::object();
        for (const auto& [name, value] : settings.headers) headers[name] = value;
        out.add("--header", "Network.setExtraHTTPHeaders", {{"headers", headers}});
    }
    for (const auto& [name, value] : settings.cookies) {
        for (const auto& url : urls) {
            if (!is_of_a_site(url)) continue;
            out.add("--cookie " + name, "Network.setCookie",
                    {{"name", name}, {"value", value}, {"url", url}});
        }
    }
}

}  // namespace

bool is_of_a_site(const std::string& url) {
    return text::begins_ignoring_case(url, "http://") ||
           text::begins_ignoring_case(url, "https://");
}

named_texts browser_switches(const page_settings& settings) {
    named_texts switches;
    if (settings.proxy == "none") {
        switches.emplace_back("no-proxy-server", "");
    } else if (!settings.proxy.empty()) {
        switches.emplace_back("proxy-server", settings.proxy);
    }
    if (settings.ignores_certificates) switches.emplace_back("ignore-certificate-errors", "");
    if (!settings.locale.empty()) {
        switches.emplace_back("accept-lang", settings.locale);
        switches.emplace_back("lang", settings.locale);
    }
    switches.insert(switches.end(), settings.switches.begin(), settings.switches.end());
    return switches;
}

std::vector<inspector_request> inspector_requests(const page_settings& settings,
                                                  const std::vector<std::string>& urls,
                                                  bool is_exact) {
    requests out;
    // Reports what the page says of itself.
    out.add("", "Runtime.enable", json::object());
    out.add("", "Log.enable", json::object());
    out.add("", "Page.enable", json::object());
    // Says of what type a film is that cannot be played. What comes is not kept for anybody.
    out.add("", "Network.enable", {{"maxTotalBufferSize", 0}, {"maxResourceBufferSize", 0}});
    // Files of another run may have changed since, or be there in one of two runs only.
    out.add("", "Network.clearBrowserCache", json::object());
    out.watch(k_media_binding, k_media_watch);
    if (is_exact) out.watch(k_clock_binding, k_clock_watch);
    // A picture has nobody who could scroll it.
    out.add("", "Emulation.setScrollbarsHidden", {{"hidden", true}});
    add_media(settings, out);
    add_user(settings, out);
    add_network(settings, urls, out);
    return out.take();
}

}  // namespace pennywort::host
