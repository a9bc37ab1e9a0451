// host/render/page_sayings.cpp - see the header for the contract.
#include "host/render/page_sayings.h"

#include <algorithm>
#include <utility>

#include "host/app/json.h"
#include "host/render/clock_fault.h"

namespace pennywort::host {

namespace {

// A page may log anything; what is longer tells nobody more.
constexpr std::size_t k_longest_line = 2000;

constexpr std::string_view k_console = "Runtime.consoleAPICalled";
constexpr std::string_view k_thrown = "Runtime.exceptionThrown";
constexpr std::string_view k_log = "Log.entryAdded";

const json& part(const json& value, const char* place) {
    static const json& none = *new json;
    const json::json_pointer where(place);
    return value.contains(where) ? value.at(where) : none;
}

std::string text_at(const json& value, const char* place) {
    const json& found = part(value, place);
    return found.is_string() ? found.get<std::string>() : std::string();
}

std::int64_t number_at(const json& value, const char* place) {
    const json& found = part(value, place);
    return found.is_number_integer() ? found.get<std::int64_t>() : -1;
}

// What the driver of a page by its own clock begins its warnings with, and what it says where
// nobody listens.
constexpr std::string_view k_mark = "thinternal ";
constexpr std::string_view k_warning = "thinternal sound: ";
constexpr std::string_view k_clock_warning = "thinternal clock: ";
constexpr std::string_view k_unheard = "thinternal sound: nobody listens";

std::string file_name(const std::string& url) {
    const std::string bare = url.substr(0, url.find_first_of("?#"));
    const auto name = bare.substr(bare.find_last_of('/') + 1);
    return name.empty() || url.substr(0, 5) == "data:" ? url.substr(0, 60) : name;
}

// "page.html:3:5: ", as editors read it; the inspector counts from 0.
std::string place_text(const json& where) {
    const std::string url = text_at(where, "/url");
    const std::int64_t line = number_at(where, "/lineNumber");
    if (url.empty() && line < 0) return {};
    std::string text = url.empty() ? "script" : file_name(url);
    if (line >= 0) text += ":" + std::to_string(line + 1);
    const std::int64_t column = number_at(where, "/columnNumber");
    if (line >= 0 && column >= 0) text += ":" + std::to_string(column + 1);
    return text + ": ";
}

// Where the script stood, or what the event itself says of it.
const json& standing_of(const json& event) {
    const json& frame = part(event, "/stackTrace/callFrames/0");
    return text_at(frame, "/url").empty() ? event : frame;
}

std::string place_of(const json& event) { return place_text(standing_of(event)); }

std::string quoted(const std::string& text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string shortened(std::string line) {
    if (line.size() > k_longest_line) line = line.substr(0, k_longest_line) + " ...";
    return line;
}

// A text in quotes, so that it is no number; what an object or a list holds in its turn the browser
// does not say.
std::string property_text(const json& property) {
    const std::string type = text_at(property, "/type");
    const std::string value = text_at(property, "/value");
    if (type == "string") return quoted(value);
    if (type == "function") return "function";
    return type == "object" && value == "Object" ? "{...}" : value;
}

std::string preview_text(const json& preview) {
    const bool is_list = text_at(preview, "/subtype") == "array";
    std::string text;
    for (const json& one : part(preview, "/properties")) {
        if (!text.empty()) text += ", ";
        if (!is_list) text += text_at(one, "/name") + ": ";
        text += property_text(one);
    }
    if (part(preview, "/overflow") == true) text += ", ...";
    return is_list ? "[" + text + "]" : "{" + text + "}";
}

// One argument of console.log, as a console shows it.
std::string argument_text(const json& argument) {
    const json& value = part(argument, "/value");
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_null()) return value.dump(-1, ' ', false, json::error_handler_t::replace);
    const std::string unusual = text_at(argument, "/unserializableValue");
    if (!unusual.empty()) return unusual;
    const json& preview = part(argument, "/preview");
    const std::string subtype = text_at(argument, "/subtype");
    const bool is_plain = subtype.empty() || subtype == "array";
    if (preview.is_object() && is_plain) return preview_text(preview);
    const std::string description = text_at(argument, "/description");
    if (!description.empty()) return description;
    return subtype == "null" ? "null" : text_at(argument, "/type");
}

saying_kind kind_of_level(const std::string& level) {
    if (level == "error" || level == "assert") return saying_kind::console_error;
    return level == "warning" ? saying_kind::console_warning : saying_kind::console;
}

std::optional<page_saying> console_saying(const json& event) {
    const std::string type = text_at(event, "/type");
    if (type == "clear" || type == "endGroup") return {};
    const std::string first = text_at(event, "/args/0/value");
    if (type == "warning" && first.starts_with(k_warning)) {
        const auto kind = first == k_unheard ? saying_kind::unheard : saying_kind::sound;
        return page_saying{kind, shortened(first.substr(k_mark.size()))};
    }
    if (type == "warning" && first.starts_with(k_clock_warning)) {
        return page_saying{saying_kind::clock, shortened(first.substr(k_mark.size()))};
    }
    std::string line;
    for (const json& argument : part(event, "/args")) {
        line += (line.empty() ? "" : " ") + argument_text(argument);
    }
    return page_saying{kind_of_level(type),
                       shortened(place_of(event) + "console." + type + ": " + line)};
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

// Without a place it is a script of the user's that is no JavaScript, which is told elsewhere.
std::optional<page_saying> exception_saying(const json& event) {
    const json& details = part(event, "/exceptionDetails");
    const std::string text = text_at(details, "/text");
    const std::string place = place_of(details);
    const std::string kind = text_at(details, "/exception/className");
    const bool has_url =
        !text_at(details, "/url").empty() || part(details, "/stackTrace").is_object();
    if (kind == "SyntaxError" && !has_url) return {};
    std::string thrown = first_line(text_at(details, "/exception/description"));
    const bool is_named = !thrown.empty() && thrown != "Object";
    if (!is_named && part(details, "/exception").is_object()) {
        thrown = argument_text(part(details, "/exception"));
    }
    const bool is_rejection = text.find("in promise") != text.npos;
    const bool says_it = thrown.empty() || text.find(thrown) != text.npos;
    return page_saying{is_rejection ? saying_kind::rejection : saying_kind::error,
                       shortened(place + text + (says_it ? "" : " " + thrown))};
}

// The browser asks every site for an icon of its tabs, whether a page names one or not.
bool is_icon_of_site(const std::string& url) {
    constexpr std::string_view k_icon = "/favicon.ico";
    const auto host = url.find("://");
    return host != url.npos && url.find('/', host + 3) == url.size() - k_icon.size() &&
           url.ends_with(k_icon);
}

// How fast its drawing goes is the machine's matter.
bool is_of_driver(const std::string& text) {
    return text.find("GL Driver Message (OpenGL, Performance,") != text.npos;
}

std::optional<page_saying> log_saying(const json& event) {
    const json& entry = part(event, "/entry");
    const std::string source = text_at(entry, "/source");
    const std::string text = text_at(entry, "/text");
    // What the browser thinks of the page's style is nothing that the page says.
    if (source == "violation" || source == "deprecation" || source == "recommendation") return {};
    if (is_of_driver(text)) return {};
    if (source != "network") {
        return page_saying{kind_of_level(text_at(entry, "/level")),
                           shortened(place_of(entry) + text)};
    }
    const std::string url = text_at(entry, "/url");
    if (is_icon_of_site(url)) return {};
    return page_saying{saying_kind::failed_resource,
                       shortened(url.substr(0, 500) + (url.empty() ? "" : ": ") + text)};
}

std::optional<page_saying> dialog_saying(const json& event) {
    return page_saying{saying_kind::console,
                       shortened(file_name(text_at(event, "/url")) + ": " +
                                 text_at(event, "/type") + ": " + text_at(event, "/message"))};
}

std::optional<page_saying> saying_with(saying_kind kind, std::optional<std::string> line) {
    if (!line) return {};
    return page_saying{kind, std::move(*line)};
}

std::optional<page_saying> binding_saying(const json& event, bool is_of_file,
                                          const media_types& types) {
    const std::string name = text_at(event, "/name");
    const std::string payload = text_at(event, "/payload");
    if (name == k_clock_binding) {
        if (auto still = still_film_fault(payload)) return saying_with(saying_kind::media, still);
        return saying_with(saying_kind::clock, clock_fault(payload));
    }
    if (name != k_media_binding) return {};
    return saying_with(saying_kind::media, media_fault(payload, is_of_file, types));
}

}  // namespace

void saying_counts::count(saying_kind kind) {
    switch (kind) {
        case saying_kind::error:
            ++errors;
            break;
        case saying_kind::rejection:
            ++rejections;
            break;
        case saying_kind::failed_resource:
        case saying_kind::media:
            ++failed_resources;
            break;
        case saying_kind::console_error:
            ++console_errors;
            break;
        case saying_kind::console_warning:
            ++console_warnings;
            break;
        case saying_kind::console:
        case saying_kind::sound:
        case saying_kind::unheard:
        case saying_kind::clock:
            break;
    }
}

std::uint64_t saying_counts::faults() const {
    return errors + rejections + failed_resources + console_errors;
}

std::string saying_counts::text() const {
    const std::pair<std::uint64_t, const char*> k_parts[] = {
        {errors, "uncaught error"},
        {rejections, "rejected promise"},
        {failed_resources, "failed resource"},
        {console_errors, "console error"},
        {console_warnings, "console warning"},
    };
    std::string text;
    for (const auto& [count, thing] : k_parts) {
        if (count == 0) continue;
        if (!text.empty()) text += ", ";
        text += std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
    }
    return text;
}

void told_sayings::page_asked_for() { m_is_awaited = true; }

void told_sayings::page_begins() {
    if (std::exchange(m_is_awaited, false)) {
        page_came();
        m_has_come = false;
    } else if (!m_has_come) {
        m_before = std::exchange(m_said, {});
    }
}

void told_sayings::page_came() {
    m_has_come = true;
    m_said.clear();
    m_before.clear();
}

bool told_sayings::is_new(const page_saying& said) {
    // A page that says more before it has come is not followed so far.
    constexpr std::size_t k_most = 1000;
    if (m_has_come) return true;
    if (m_said.size() < k_most) m_said.push_back(said);
    const auto told = std::find(m_before.begin(), m_before.end(), said);
    if (told == m_before.end()) return true;
    m_before.erase(told);
    return false;
}

std::optional<std::string> begun_page(std::string_view method, std::string_view parameters) {
    if (method != "Page.frameNavigated") return {};
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object() || part(event, "/frame").contains("parentId")) return {};
    return text_at(event, "/frame/url");
}

// A worker's own script is known from when it is heard, before it speaks; another one that it takes
// in from what it says itself.
bool worker_sayings::is_repeated(std::string_view method, std::string_view parameters) {
    const bool is_log = method == k_log, has_thrown = method == k_thrown;
    const bool is_begun = method == "Target.attachedToTarget";
    if (!is_log && !has_thrown && !is_begun && method != k_console) return false;
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object()) return false;
    if (is_begun) {
        if (m_heard.size() < k_most) m_heard.insert(text_at(event, "/targetInfo/url"));
        return false;
    }
    if (is_log && text_at(event, "/entry/source") != "worker") return false;
    const json& said = is_log ? part(event, "/entry") : part(event, "/exceptionDetails");
    const json& where = standing_of(has_thrown || is_log ? said : event);
    const std::string url = text_at(where, "/url");
    if (url.empty() || m_heard.contains(url)) return is_log && !url.empty();
    return has_come(url + ":" + std::to_string(number_at(where, "/lineNumber")), is_log);
}

bool worker_sayings::has_come(const std::string& line, bool is_log) {
    if (m_ahead.size() >= k_most && !m_ahead.contains(line)) return false;
    int& ahead = m_ahead[line];
    const bool is_known = is_log ? ahead > 0 : ahead < 0;
    ahead += is_log ? -1 : 1;
    return is_known;
}

bool is_hosts_syntax_error(std::string_view method, std::string_view parameters,
                           const std::string& address) {
    if (method != k_thrown) return false;
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object()) return false;
    const json& details = part(event, "/exceptionDetails");
    const std::string url = text_at(details, "/url");
    return !part(details, "/exception").is_object() && url.substr(0, url.find('#')) == address &&
           text_at(details, "/text").starts_with("Uncaught SyntaxError: ");
}

std::optional<page_saying> saying_of(std::string_view method, std::string_view parameters,
                                     bool is_of_file, const media_types& types) {
    std::optional<page_saying> (*reader)(const json&) = nullptr;
    if (method == k_console) reader = console_saying;
    if (method == k_thrown) reader = exception_saying;
    if (method == k_log) reader = log_saying;
    if (method == k_dialog_event) reader = dialog_saying;
    const bool is_binding = method == "Runtime.bindingCalled";
    if (reader == nullptr && !is_binding) return {};
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object()) return {};
    return is_binding ? binding_saying(event, is_of_file, types) : reader(event);
}

bool tells_of_fetch(const page_saying& said) {
    return said.kind == saying_kind::clock &&
           said.line.starts_with("clock: a fetch that does not end");
}

std::string evaluation_fault(std::string_view result) {
    const json answer = json::parse(result, nullptr, false);
    if (!answer.is_object()) return {};
    const json& details = part(answer, "/exceptionDetails");
    if (!details.is_object()) return {};
    const json& thrown = part(details, "/exception");
    const std::string text = thrown.is_object() ? argument_text(thrown) : text_at(details, "/text");
    const bool is_in_page = !text_at(details, "/stackTrace/callFrames/0/url").empty();
    return shortened((is_in_page ? place_of(details) : std::string()) + first_line(text));
}

}  // namespace pennywort::host
