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

std::string words_of_number(cWebSocket::Error error) {
    switch (error) {
        case cWebSocket::Error::None:
            break;
        case cWebSocket::Error::LibraryError:
            return "the library reports an error (--verbose says why)";
        case cWebSocket::Error::ConnectFailed:
            return "no connection";
        case cWebSocket::Error::ConnectionLost:
            return "the connection is lost";
        case cWebSocket::Error::SendFailed:
            return "a message was not sent";
        case cWebSocket::Error::AbnormalClosure:
            return "no connection, or one that ended without a goodbye";
    }
    return "nothing is known of it";
}

}  // namespace

std::shared_ptr<cWebSocket> make_feed(ws_transport transport) {
    std::shared_ptr<cWebSocket> feed = make_bare(transport);
    if (feed == nullptr) return nullptr;
    cWebSocketOptions options;
    options.isTimeoutHonoured = true;
    options.isUpgradeChecked = true;
    options.isIPv6Taken = true;
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

std::string words_of(cWebSocket::Error error, const std::string& why) {
    return "error " + std::to_string(static_cast<int>(error)) + ": " +
           (why.empty() ? words_of_number(error) : with_codes(why));
}

std::string words_of_goodbye(std::int32_t code, const std::string& reason) {
    const std::string with_code = code == k_no_code ? "" : " with " + std::to_string(code);
    return "closed by the server" + with_code + (reason.empty() ? "" : ": " + with_codes(reason));
}

bool is_failure(std::int32_t code) {
    return code != k_normal && code != k_going_away && code != k_no_code;
}

std::string words_of_close(std::optional<cWebSocket::Error> error, bool was_clean,
                           const std::string& why) {
    if (was_clean) return "closed";
    if (error) return "closed, " + words_of(*error, why);
    return "closed, not cleanly" + (why.empty() ? " (--verbose says why)" : ": " + with_codes(why));
}

}  // namespace pennywort::host
