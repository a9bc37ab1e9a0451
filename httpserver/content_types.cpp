// httpserver/content_types.cpp - see the header for the contract.
#include "httpserver/content_types.h"

#include <algorithm>
#include <iterator>

#include "core/text/ascii.h"

namespace pennywort::httpserver {
namespace {

struct content_type {
    std::string_view extension;
    const char* type;
};

// Texts are UTF-8: a browser would guess otherwise.
constexpr content_type k_types[] = {
    {"html", "text/html; charset=utf-8"},
    {"htm", "text/html; charset=utf-8"},
    {"css", "text/css; charset=utf-8"},
    {"js", "text/javascript; charset=utf-8"},
    {"mjs", "text/javascript; charset=utf-8"},
    {"json", "application/json"},
    {"map", "application/json"},
    {"txt", "text/plain; charset=utf-8"},
    {"csv", "text/csv; charset=utf-8"},
    {"md", "text/markdown; charset=utf-8"},
    {"xml", "text/xml; charset=utf-8"},
    {"svg", "image/svg+xml"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"ico", "image/x-icon"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"ttf", "font/ttf"},
    {"otf", "font/otf"},
    {"wasm", "application/wasm"},
    {"pdf", "application/pdf"},
    {"zip", "application/zip"},
    {"gz", "application/gzip"},
    {"mp3", "audio/mpeg"},
    {"m4a", "audio/mp4"},
    {"ogg", "audio/ogg"},
    {"wav", "audio/wav"},
    {"mp4", "video/mp4"},
    {"m4v", "video/mp4"},
    {"webm", "video/webm"},
    {"mov", "video/quicktime"},
    {"mkv", "video/x-matroska"},
    {"ts", "video/mp2t"},
    {"m3u8", "application/vnd.apple.mpegurl"},
    {"mpd", "application/dash+xml"},
    {"vtt", "text/vtt; charset=utf-8"},
};

}  // namespace

const char* content_type_of(std::string_view extension) {
    const auto* const found =
        std::find_if(std::begin(k_types), std::end(k_types), [&](const content_type& one) {
            return text::equal_ignoring_case(extension, one.extension);
        });
    return found == std::end(k_types) ? "application/octet-stream" : found->type;
}

}  // namespace pennywort::httpserver
