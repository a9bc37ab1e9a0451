// host/ws/ws_feed.cpp - see the header for the contract.
#include "host/ws/ws_feed.h"

#include <new>

#include "core/http/url.h"
#include "core/text/ascii.h"
#include "host/app/terminal_text.h"

namespace pennywort::host {

namespace {

constexpr std::int32_t k_normal = 1000;
constexpr std::int32_t k_going_away = 1001;
constexpr std::int32_t k_no_code = 1005;

// The system transport sends no pings; the command does not ask for any there.
class system_feed final : public cWebSocket_WinHttp {
public:
    void SendPing() override {}
};

std::shared_ptr<cWebSocket> make_bare(ws_transport transport) {
    if (transport == ws_transport::managed) return cWebSocket::Factory();
    return std::make_shared<system_feed>();
}

}  // namespace

std::shared_ptr<cWebSocket> make_feed(ws_transport transport) {
    std::shared_ptr<cWebSocket> feed = make_bare(transport);
    if (feed == nullptr) return nullptr;
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    options.isUpgradeChecked = true;
    feed->SetOptions(options);
    return feed;
}

std::string fault_of_feed_url(const std::string& url) {
    if (!text::begins_ignoring_case(url, "ws://") && !text::begins_ignoring_case(url, "wss://")) {
        return url + " is no URL of a WebSocket: it begins with ws:// or wss://";
    }
    const http::parsed_url parsed = http::parse_url(url);
    if (!parsed.is_ok()) return url + ": " + std::string(http::words_of(parsed.fault));
    return parsed.value.fragment.empty() ? "" : url + ": a WebSocket has no part behind a #";
}

std::string words_of(cWebSocket::Error error) {
    switch (error) {
        case cWebSocket::Error::None:
            break;
        case cWebSocket::Error::LibraryError:
            return "error 1: the library reports an error (--verbose says why)";
        case cWebSocket::Error::ConnectFailed:
            return "error 2: no connection";
        case cWebSocket::Error::ConnectionLost:
            return "error 3: the connection is lost";
        case cWebSocket::Error::SendFailed:
            return "error 4: a message was not sent";
        case cWebSocket::Error::AbnormalClosure:
            return "error 5: no connection, or one that ended without a goodbye";
    }
    return "error 0";
}

std::string words_of_goodbye(std::int32_t code, const std::string& reason) {
    const std::string with_code = code == k_no_code ? "" : " with " + std::to_string(code);
    return "closed by the server" + with_code + (reason.empty() ? "" : ": " + with_codes(reason));
}

bool is_failure(std::int32_t code) {
    return code != k_normal && code != k_going_away && code != k_no_code;
}

std::string words_of_close(std::optional<cWebSocket::Error> error, bool was_clean) {
    const std::string how = was_clean ? "closed" : "closed, not cleanly (--verbose says why)";
    return error ? how + ", " + words_of(*error) : how;
}

}  // namespace pennywort::host
