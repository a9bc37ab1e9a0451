// host/live/live_page.cpp - see the header for the contract.
#include "host/live/live_page.h"

// Made by the build from host/live/: one array of bytes for each file.
#include "live_page_bytes.h"

namespace pennywort::host {

namespace {

template <std::size_t N>
std::string text_of(const unsigned char (&bytes)[N]) {
    return {bytes, bytes + N};
}

}  // namespace

const live_page_file* find_live_page_file(std::string_view path) {
    static const live_page_file files[] = {
        {"/", "text/html; charset=utf-8", text_of(k_live_html)},
        {"/live.css", "text/css; charset=utf-8", text_of(k_live_css)},
        {"/live.js", "text/javascript; charset=utf-8", text_of(k_live_js)},
    };
    for (const auto& file : files) {
        if (path == file.path) return &file;
    }
    return nullptr;
}

}  // namespace pennywort::host
