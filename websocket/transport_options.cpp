// websocket/transport_options.cpp - see the header for the contract.
#include "websocket/transport_options.h"

#include <algorithm>
#include <cmath>

#include "core/http/bytes.h"
#include "core/limits.h"
#include "loam/trace.h"

namespace pennywort::websocket {

namespace {

constexpr char k_user_agent[] = "KettlewindWebSocket";

// A value with a line end would begin another header.
bool is_header_line(std::string_view line) {
    const std::size_t colon = line.find(':');
    return colon != line.npos && http::is_token(line.substr(0, colon)) &&
           http::is_value(line.substr(colon + 1));
}

std::chrono::milliseconds opening_time(const cWebSocketOptions& options, double timeout) {
    if (!options.isTimeoutHonoured || !(timeout > 0)) return std::chrono::milliseconds(0);
    const double seconds = std::min(timeout, k_max_timeout_seconds);
    return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
}

}  // namespace

std::vector<std::string> header_lines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == text.npos ? std::string_view() : text.substr(end + 1);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty()) continue;
        if (is_header_line(line)) {
            lines.emplace_back(line);
        } else {
            zTraceManager::Default()->TraceNote("cWebSocket: an option is no header: left out\n");
        }
    }
    return lines;
}

transport_settings settings_of(const cWebSocketOptions& options, double timeout) {
    transport_settings settings;
    settings.user_agent = k_user_agent;
    settings.opening_time = opening_time(options, timeout);
    settings.headers = header_lines(options.headers.View());
    settings.protocols = options.protocols.View();
    settings.max_message_bytes = options.maxMessageBytes > 0 ? std::size_t(options.maxMessageBytes)
                                                             : k_max_websocket_message_bytes;
    settings.offers_deflate = options.isDeflateOffered;
    return settings;
}

}  // namespace pennywort::websocket
