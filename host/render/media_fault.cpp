// host/render/media_fault.cpp - see the header for the contract.
#include "host/render/media_fault.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "core/text/ascii.h"
#include "core/text/file_url.h"
#include "host/app/json.h"

namespace pennywort::host {

namespace {

// An MPEG-4 file names its formats at its beginning or at its end.
constexpr std::streamoff k_looked_at = 4 << 20;

struct format_row {
    std::string_view mark;
    const char* name;
};
constexpr format_row k_formats[] = {
    {"avc1", "H.264"}, {"avc3", "H.264"}, {"hvc1", "HEVC"}, {"hev1", "HEVC"}, {"mp4a", "AAC"},
};

constexpr const char* k_lacking = "H.264, HEVC or AAC";

// Of files that hold them nearly always.
constexpr std::string_view k_types[] = {
    "video/mp4",
    "video/x-m4v",
    "video/quicktime",
    "video/mp2t",
    "audio/mp4",
    "audio/x-m4a",
    "audio/aac",
    "audio/x-aac",
    "audio/aacp",
    "video/3gpp",
    "application/x-mpegurl",
    "application/vnd.apple.mpegurl",
};

// A page that asks for more of them is not followed so far.
constexpr std::size_t k_most_known = 2000;

constexpr std::string_view k_licensed_endings[] = {".mp4", ".m4v", ".mov", ".m4a",
                                                   ".aac", ".ts",  ".m3u8"};

std::string text_of(const json& value, const char* name) {
    const auto at = value.find(name);
    return at != value.end() && at->is_string() ? at->get<std::string>() : std::string();
}

std::string bytes_of_file(const std::string& url) {
    const auto path = text::path_of_file_url(url);
    // A page may name anything, and a pipe would not come to an end.
    std::error_code ignored;
    if (!path || !std::filesystem::is_regular_file(*path, ignored)) return {};
    std::ifstream file(*path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? std::streamoff(file.tellg()) : 0;
    std::string bytes(static_cast<std::size_t>(std::min(size, 2 * k_looked_at)), '\0');
    const auto half = static_cast<std::streamoff>(bytes.size()) / 2;
    file.seekg(0);
    file.read(bytes.data(), half);
    file.seekg(size - (static_cast<std::streamoff>(bytes.size()) - half));
    file.read(bytes.data() + half, static_cast<std::streamoff>(bytes.size()) - half);
    return bytes;
}

bool has_ending(const std::string& url) {
    const std::string bare = text::lower(url.substr(0, url.find_first_of("?#")));
    return std::any_of(std::begin(k_licensed_endings), std::end(k_licensed_endings),
                       [&](std::string_view ending) { return bare.ends_with(ending); });
}

bool is_lacking_type(const std::string& type) {
    return std::find(std::begin(k_types), std::end(k_types), type) != std::end(k_types);
}

}  // namespace

const char* const k_media_watch = R"js((() => {
  const tell = self.thinternalMedia;
  const failed = new WeakMap();
  addEventListener('error', event => {
    const source = event.target;
    const is_one_of_some = source instanceof HTMLSourceElement;
    const film = is_one_of_some ? source.parentElement : source;
    if (!tell || !(film instanceof HTMLMediaElement)) return;
    const all = failed.get(film) ?? [];
    all.push({url: source.src || film.currentSrc, type: source.type || ''});
    failed.set(film, all);
    if (is_one_of_some && film.networkState !== HTMLMediaElement.NETWORK_NO_SOURCE) return;
    failed.delete(film);
    for (const one of all) tell(JSON.stringify(one));
  }, true);
})();)js";

std::string lacking_formats(std::string_view bytes) {
    std::string names;
    for (const auto& [mark, name] : k_formats) {
        if (bytes.find(mark) == bytes.npos || names.find(name) != names.npos) continue;
        names += (names.empty() ? "" : ", ") + std::string(name);
    }
    return names;
}

void media_types::hear(std::string_view method, std::string_view parameters) {
    const bool is_answer = method == "Network.responseReceived";
    if (!is_answer && method != "Network.requestWillBeSent") return;
    // Of the page's many requests few are for films, and an URL may have megabytes.
    if (parameters.find("\"Media\"") == parameters.npos) return;
    const json event = json::parse(parameters, nullptr, false);
    if (!event.is_object() || text_of(event, "type") != "Media") return;
    const std::string request = text_of(event, "requestId");
    const json& what = event.value(is_answer ? "response" : "request", json::object());
    if (!what.is_object() || m_asked.size() + m_types.size() > k_most_known) return;
    if (!is_answer) {
        m_asked.try_emplace(request, text_of(what, "url"));
        return;
    }
    const int status = what.contains("status") && what["status"].is_number_integer()
                           ? what["status"].get<int>()
                           : 0;
    if (status < 200 || status > 299) return;
    const auto asked = m_asked.find(request);
    const std::string url = asked != m_asked.end() ? asked->second : text_of(what, "url");
    m_types[url] = text::lower(text_of(what, "mimeType"));
}

void media_types::page_begins() {
    m_asked.clear();
    m_types.clear();
}

std::string media_types::of(const std::string& url) const {
    const auto found = m_types.find(url.substr(0, url.find('#')));
    return found != m_types.end() ? found->second : std::string();
}

std::optional<std::string> media_fault(const std::string& payload, bool is_of_file,
                                       const media_types& types) {
    const json told = json::parse(payload, nullptr, false);
    if (!told.is_object()) return {};
    const std::string url = text_of(told, "url");
    const std::string type = types.of(url);
    std::string formats = lacking_formats(text_of(told, "type"));
    if (formats.empty() && is_of_file) formats = lacking_formats(bytes_of_file(url));
    if (formats.empty() && is_lacking_type(type))
        formats = k_lacking + (", by its type (" + type) + "),";
    if (formats.empty() && has_ending(url)) formats = k_lacking + std::string(", by its name,");
    if (formats.empty() && !type.empty()) formats = type.substr(0, 100);
    if (formats.empty()) return {};
    return url.substr(0, 500) + ": it is " + formats +
           " and cannot be played: this browser runtime was built without H.264, HEVC and AAC. VP9 "
           "or AV1 with Opus, in WebM, can be";
}

}  // namespace pennywort::host
