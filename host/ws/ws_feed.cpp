// host/ws/ws_feed.cpp - see the header for the contract.
#include "host/ws/ws_feed.h"

#include <new>

namespace pennywort::host {

namespace {

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

std::string words_of(cWebSocket::Error error) {
    switch (error) {
        case cWebSocket::Error::None:
            break;
        case cWebSocket::Error::LibraryError:
            return "error 1: the library reports an error";
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

std::string words_of_close(std::optional<cWebSocket::Error> error, bool was_clean) {
    const std::string how = was_clean ? "closed" : "closed, not cleanly (--verbose says why)";
    return error ? how + ", " + words_of(*error) : how;
}

}  // namespace pennywort::host
