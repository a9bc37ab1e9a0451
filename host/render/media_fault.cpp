// host/render/media_fault.cpp - see the header for the contract.
#include "host/render/media_fault.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/text/ascii.h"
#include "core/text/file_url.h"

namespace pennywort::host {

namespace {

using json = nlohmann::json;

// An MPEG-4 file names its formats at its beginning or at its end.
constexpr std::streamoff k_looked_at = 4 << 20;

struct format_row {
    std::string_view mark;
    const char* name;
};
constexpr format_row k_formats[] = {
    {"avc1", "H.264"}, {"avc3", "H.264"}, {"hvc1", "HEVC"}, {"hev1", "HEVC"}, {"mp4a", "AAC"},
};

constexpr std::string_view k_endings[] = {".mp4", ".m4v", ".mov", ".m4a", ".aac", ".ts", ".m3u8"};

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
    return std::any_of(std::begin(k_endings), std::end(k_endings),
                       [&](std::string_view ending) { return bare.ends_with(ending); });
}

}  // namespace

const char* const k_media_watch = R"js((() => {
  const tell = self.thinternalMedia;
  addEventListener('error', event => {
    const source = event.target;
    const film = source instanceof HTMLSourceElement ? source.parentElement : source;
    if (!tell || !(film instanceof HTMLMediaElement)) return;
    tell(JSON.stringify({url: source.src || film.currentSrc, type: source.type || ''}));
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

std::optional<std::string> media_fault(const std::string& payload, bool is_of_file) {
    const json told = json::parse(payload, nullptr, false);
    if (!told.is_object()) return {};
    const std::string url = text_of(told, "url");
    std::string formats = lacking_formats(text_of(told, "type"));
    if (formats.empty() && is_of_file) formats = lacking_formats(bytes_of_file(url));
    const bool is_known = !formats.empty();
    if (!is_known && !has_ending(url)) return {};
    if (!is_known) formats = "H.264, HEVC or AAC, by its name,";
    return url.substr(0, 500) + ": it is " + formats +
           " and cannot be played: this browser runtime was built without H.264, HEVC and AAC. VP9 "
           "or AV1 with Opus, in WebM, can be";
}

}  // namespace pennywort::host
