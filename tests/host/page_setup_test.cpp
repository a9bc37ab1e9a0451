// tests/host/page_setup_test.cpp - what the browser and a page's inspector are told of the options.
#include "host/render/page_setup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/render/clock_fault.h"

namespace pennywort::host {
namespace {

using strings = std::vector<std::string>;

// Those beside the ones that every page gets, as "method parameters".
strings told(const page_settings& settings, const strings& urls = {"https://a/", "file:///b"}) {
    strings lines;
    for (const auto& request : inspector_requests(settings, urls, true)) {
        if (!request.option.empty()) lines.push_back(request.method + " " + request.parameters);
    }
    return lines;
}

strings switches_of(const page_settings& settings) {
    strings lines;
    for (const auto& [name, value] : browser_switches(settings)) {
        lines.push_back(value.empty() ? name : name + "=" + value);
    }
    return lines;
}

TEST(PageSetup, NothingThatWasNotAskedFor) {
    EXPECT_EQ(told({}), strings{});
    EXPECT_EQ(switches_of({}), strings{});
}

TEST(PageSetup, ScrollbarsAreHiddenAlways) {
    bool is_there = false;
    for (const auto& request : inspector_requests({}, {}, true)) {
        is_there |= request.method == "Emulation.setScrollbarsHidden";
        EXPECT_EQ(request.option, "") << "nobody has asked for it";
    }
    EXPECT_TRUE(is_there);
}

TEST(PageSetup, OnlyAPageByItsOwnClockIsWatchedForWhatDoesNotGoByIt) {
    for (const bool is_exact : {false, true}) {
        int count = 0;
        for (const auto& request : inspector_requests({}, {}, is_exact)) {
            count += request.parameters.find(k_clock_binding) != std::string::npos;
        }
        EXPECT_EQ(count, is_exact ? 2 : 0) << "a binding and a script";
    }
}

TEST(PageSetup, MediaIsOneCall) {
    page_settings settings;
    settings.media = {{"prefers-color-scheme", "dark"}, {"", "print"}, {"hover", "none"}};
    EXPECT_EQ(told(settings), strings{R"(Emulation.setEmulatedMedia {"media":"print","features":[)"
                                      R"({"name":"prefers-color-scheme","value":"dark"},)"
                                      R"({"name":"hover","value":"none"}]})"});
}

TEST(PageSetup, TheUserHasALanguageAZoneAndABrowser) {
    page_settings settings;
    settings.locale = "de-CH";
    settings.timezone = "Europe/Oslo";
    EXPECT_EQ(told(settings),
              (strings{R"(Emulation.setLocaleOverride {"locale":"de_CH"})",
                       R"(Emulation.setTimezoneOverride {"timezoneId":"Europe/Oslo"})"}));
    EXPECT_EQ(switches_of(settings), (strings{"accept-lang=de-CH", "lang=de-CH"}));
    settings.timezone.clear();
    settings.user_agent = "Me/1.0";
    EXPECT_EQ(told(settings).back(),
              R"(Emulation.setUserAgentOverride {"userAgent":"Me/1.0","acceptLanguage":"de-CH"})");
}

TEST(PageSetup, HeadersAreOneCallAndCookiesOneForEachSite) {
    page_settings settings;
    settings.headers = {{"X-Key", "a\"b"}, {"Accept-Language", "nb"}};
    settings.cookies = {{"session", "1"}, {"theme", "dark"}};
    EXPECT_EQ(
        told(settings),
        (strings{
            R"(Network.setExtraHTTPHeaders {"headers":{"X-Key":"a\"b","Accept-Language":"nb"}})",
            R"(Network.setCookie {"name":"session","value":"1","url":"https://a/"})",
            R"(Network.setCookie {"name":"theme","value":"dark","url":"https://a/"})"}));
}

TEST(PageSetup, SwitchesComeInTheirOrder) {
    page_settings settings;
    settings.proxy = "socks5://10.0.0.1:1080";
    settings.ignores_certificates = true;
    settings.switches = {{"force-dark-mode", ""}, {"js-flags", "--expose-gc"}};
    EXPECT_EQ(switches_of(settings),
              (strings{"proxy-server=socks5://10.0.0.1:1080", "ignore-certificate-errors",
                       "force-dark-mode", "js-flags=--expose-gc"}));
    settings = {};
    settings.proxy = "none";
    EXPECT_EQ(switches_of(settings), strings{"no-proxy-server"});
}

}  // namespace
}  // namespace pennywort::host
