// host/render/page_options.cpp - see the header for the contract.
#include "host/render/page_options.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "host/app/option_hint.h"
#include "host/app/option_parser.h"
#include "host/render/page_date.h"
#include "host/render/page_language.h"

namespace pennywort::host {

namespace {

constexpr double k_smallest_scale = 0.25;
constexpr double k_largest_scale = 8;

constexpr std::pair<std::string_view, std::uint32_t> k_colours[] = {
    {"black", 0x000000},  {"silver", 0xC0C0C0}, {"gray", 0x808080},   {"white", 0xFFFFFF},
    {"maroon", 0x800000}, {"red", 0xFF0000},    {"purple", 0x800080}, {"fuchsia", 0xFF00FF},
    {"green", 0x008000},  {"lime", 0x00FF00},   {"olive", 0x808000},  {"yellow", 0xFFFF00},
    {"navy", 0x000080},   {"blue", 0x0000FF},   {"teal", 0x008080},   {"aqua", 0x00FFFF},
};

struct media_feature {
    std::string_view name;
    std::string_view values;  // a blank between
};

// What the browser takes in the place of the machine's, by its own matchMedia. It says nothing of
// the others, and of other values, and goes on with the machine's.
constexpr media_feature k_media_features[] = {
    {"prefers-color-scheme", "light dark"},
    {"prefers-reduced-motion", "no-preference reduce"},
    {"prefers-contrast", "no-preference more less custom"},
    {"prefers-reduced-transparency", "no-preference reduce"},
    {"forced-colors", "none active"},
    {"color-gamut", "srgb p3 rec2020"},
};

bool has_word(std::string_view words, std::string_view word) {
    while (!words.empty()) {
        const auto end = std::min(words.find(' '), words.size());
        if (words.substr(0, end) == word) return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

// Words with spaces between them, as a list.
std::string list_of(std::string words) {
    for (auto at = words.find(' '); at != words.npos; at = words.find(' ', at + 2)) {
        words.replace(at, 1, ", ");
    }
    return words;
}

std::string known_features() {
    std::string known;
    for (const auto& feature : k_media_features) known.append(feature.name).append(" ");
    known.pop_back();
    return list_of(known);
}

// What is wrong with a feature of style sheets; empty if nothing is.
std::string complaint_of_feature(const std::string& name, const std::string& value) {
    const auto feature = std::find_if(std::begin(k_media_features), std::end(k_media_features),
                                      [&](const auto& one) { return one.name == name; });
    const std::string given = "--media " + name + "=" + value + ": ";
    if (feature == std::end(k_media_features)) {
        return given + "the browser knows print, screen, " + known_features();
    }
    if (has_word(feature->values, value)) return {};
    return given + name + " is one of " + list_of(std::string(feature->values));
}

bool has_control(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return text::is_control(c); });
}

std::string complaint_of_start(const std::string& start) {
    const bool is_word = std::all_of(start.begin(), start.end(), text::is_letter);
    const std::string meant = is_word ? meant_word(start, {"load", "dom"}) : std::string();
    if (meant.empty()) return {};
    return "--start " + start + ": did you mean " + meant + "? As an expression, write (" + start +
           ")";
}

}  // namespace

bool take_colour(const std::string& text, std::uint32_t& colour) {
    for (const auto& [name, value] : k_colours) {
        if (text::lower(text) != name) continue;
        colour = value;
        return true;
    }
    std::string digits = text.substr(text.substr(0, 1) == "#" ? 1 : 0);
    if (digits.size() == 3) {
        digits = {digits[0], digits[0], digits[1], digits[1], digits[2], digits[2]};
    }
    const auto value = text::whole<std::uint32_t>(digits, 16);
    if (digits.size() != 6 || !value) return false;
    colour = *value;
    return true;
}

void page_arguments::add_options(option_parser& parser) {
    add_time_options(parser);
    add_picture_options(parser);
    add_user_options(parser);
    add_network_options(parser);
}

void page_arguments::add_time_options(option_parser& parser) {
    parser
        .add_option("--date", m_date,
                    "Of an exact film: the day and time that its page begins at; now without it. "
                    "2026-11-22T18:30 in the zone of --timezone or of this machine, with Z or "
                    "+01:00 behind it in that one")
        .type_name("DATE");
    parser
        .add_option("--seed", m_seed,
                    "Of an exact film: the number that Math.random begins with; 1 without it")
        .type_name("N");
    parser
        .add_option("--start", m_start,
                    "Of an exact film: its page's time begins when all of the page is there (load, "
                    "as without it), when its text is (dom), or when an expression is true")
        .type_name("load|dom|JS");
}

void page_arguments::add_picture_options(option_parser& parser) {
    parser
        .add_option("--background", m_background,
                    "Behind a page that has no background: #RRGGBB or a name of HTML; white "
                    "without it")
        .type_name("COLOUR");
    parser
        .add_option(
            "--scale", m_scale,
            "Pixels of the picture to one of the page, each way, 0.25 to 8: --size 1280x720 "
            "--scale 2 gives 2560x1440")
        .type_name("X")
        .shows_default();
    parser.add_flag("--full-page", m_is_full, "A picture of all of the page, as long as it is");
    parser.add_option("--element", m_element, "A picture of the first element that it fits")
        .type_name("SELECTOR");
    parser
        .add_option("--media", m_media,
                    "A feature that style sheets ask for, such as prefers-color-scheme=dark, or "
                    "print; may be given several times")
        .type_name("NAME=VALUE")
        .takes_one();
}

void page_arguments::add_user_options(option_parser& parser) {
    parser
        .add_option("--locale", m_locale,
                    "The user's language, such as de-CH; the machine's without it")
        .type_name("LOCALE");
    parser
        .add_option("--timezone", m_timezone,
                    "The user's time zone, such as Europe/Oslo; the machine's without it")
        .type_name("ZONE");
    parser.add_option("--user-agent", m_user_agent, "What the browser calls itself")
        .type_name("TEXT");
}

void page_arguments::add_network_options(option_parser& parser) {
    parser.add_option("--header", m_headers, "Sent with each request of the page, to every site")
        .type_name("'NAME: VALUE'")
        .takes_one();
    parser.add_option("--cookie", m_cookies, "Of the pages' own sites")
        .type_name("NAME=VALUE")
        .takes_one();
    parser
        .add_option(
            "--proxy", m_proxy,
            "http://, https://, socks4:// or socks5://HOST:PORT, HOST:PORT for http, or none; the "
            "system's without it")
        .type_name("URL");
    parser.add_flag("--ignore-certificate-errors", m_ignores_certificates,
                    "Trust every server, whoever it is");
    parser
        .add_option("--switch", m_switches,
                    "Of the browser's command line, without dashes; at one's own risk")
        .type_name("NAME[=VALUE]")
        .takes_one();
}

std::string page_arguments::take(bool is_exact, page_settings& settings) const {
    std::string wrong = take_time(is_exact, settings);
    if (wrong.empty()) wrong = take_picture(settings);
    if (wrong.empty()) wrong = take_media(settings);
    if (wrong.empty()) wrong = take_user(settings);
    return wrong.empty() ? take_network(settings) : wrong;
}

std::string page_arguments::complaint_of_date() const {
    if (!m_timezone.empty() && page_date(m_date)) {
        return "--date " + m_date + ": this machine does not know the time in " + m_timezone +
               "; give a time of day with Z or, such as +01:00, its distance behind it";
    }
    return "--date " + m_date +
           " is not a date such as 2026-11-22, 2026-11-22T18:30 or 2026-11-22T18:30:00Z";
}

std::string page_arguments::take_time(bool is_exact, page_settings& settings) const {
    for (const auto& [option, text] :
         {std::pair("--date", &m_date), {"--seed", &m_seed}, {"--start", &m_start}}) {
        if (text->empty() || is_exact) continue;
        return std::string(option) + " needs a page by its own clock: a file, or --exact";
    }
    if (auto wrong = complaint_of_start(m_start); !wrong.empty()) return wrong;
    settings.start = m_start;
    if (!m_date.empty()) {
        const auto day = page_date(m_date, m_timezone);
        if (!day) return complaint_of_date();
        settings.day = *day;
    }
    if (!m_seed.empty()) {
        const auto seed = text::whole<std::uint32_t>(m_seed);
        if (!seed) return "--seed " + m_seed + " is not a whole number from 0 to 4294967295";
        settings.seed = *seed;
    }
    return {};
}

std::string page_arguments::take_picture(page_settings& settings) const {
    if (!m_background.empty() && !take_colour(m_background, settings.background)) {
        return "--background " + m_background + " is not a colour such as #204060 or white";
    }
    const auto scale = text::decimal_between(m_scale, k_smallest_scale, k_largest_scale);
    if (!scale) return "--scale " + m_scale + " is not a number from 0.25 to 8";
    settings.scale = *scale;
    if (m_element.starts_with("-")) return "--element " + m_element + ": that is no selector";
    if (m_is_full && !m_element.empty()) return "--full-page and --element exclude each other";
    settings.is_full = m_is_full;
    settings.element = m_element;
    return {};
}

std::string page_arguments::take_media(page_settings& settings) const {
    for (const auto& text : m_media) {
        const auto end = text.find('=');
        std::string name = text.substr(0, end == text.npos ? 0 : end);
        std::string value = end == text.npos ? text : text.substr(end + 1);
        const bool is_one = value == "print" || value == "screen" || !name.empty();
        if (!is_one || value.empty()) {
            return "--media " + text +
                   " is not a feature such as prefers-color-scheme=dark, nor print or screen";
        }
        if (!name.empty()) {
            std::string wrong = complaint_of_feature(name, value);
            if (!wrong.empty()) return wrong;
        }
        const bool is_again =
            std::any_of(settings.media.begin(), settings.media.end(),
                        [&name](const auto& before) { return before.first == name; });
        if (is_again) return "--media " + text + ": another value of it is given already";
        settings.media.emplace_back(std::move(name), std::move(value));
    }
    return {};
}

std::string page_arguments::take_user(page_settings& settings) const {
    if (!m_locale.empty() && !is_locale(m_locale)) {
        return "--locale " + m_locale + " is not a language such as de or de-CH";
    }
    if (has_control(m_user_agent)) return "--user-agent holds a character that cannot be sent";
    settings.locale = m_locale;
    std::replace(settings.locale.begin(), settings.locale.end(), '_', '-');
    settings.timezone = m_timezone;
    settings.user_agent = m_user_agent;
    return {};
}

std::string page_arguments::take_network(page_settings& settings) const {
    std::string wrong = take_headers(m_headers, settings.headers);
    if (wrong.empty()) wrong = take_cookies(m_cookies, settings.cookies);
    if (wrong.empty()) wrong = take_switches(m_switches, settings.switches);
    if (wrong.empty()) wrong = take_proxy(m_proxy, settings.proxy);
    settings.ignores_certificates = m_ignores_certificates;
    return wrong;
}

}  // namespace pennywort::host
