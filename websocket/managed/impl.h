// impl.h - what stands between a cWebSocket_Sharp and the managed socket: the events as the host
// gets them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loam/ready_mutex.h"
#include "loam/shared_object.h"
#include "websocket.h"
#include "websocket/managed/managed_socket.h"
#include "websocket/managed/reconnect.h"

// Threads: operations from any; events on the binding's threads. An event runs under the lock that
// release() takes, so that what it calls is there until it has returned.
class cWebSocket_Sharp::Impl : public zSharedObject {
public:
    using managed_socket = pennywort::websocket::managed_socket;
    using managed_owner = pennywort::websocket::managed_owner;
    using managed_request = pennywort::websocket::managed_request;
    // What the events of a connection come with. It is the one that is asked for when no Open and
    // no Close has come since.
    using number = std::uint64_t;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() override;

    // Throws what the managed library throws. A connection that fails later is opened again as the
    // request says.
    void Open(const managed_request& request);
    void Close();
    void Send(std::string_view text);
    void SendBinary(std::string_view bytes);
    void SendPing();
    std::size_t waiting_bytes() const;

    void socket_opened(number of) noexcept;
    void message_received(std::string bytes, bool is_binary) noexcept;
    void error_received(const std::string& text) noexcept;
    void goodbye_received(std::uint16_t code, const std::string& reason) noexcept;
    void fault_received(const std::string& why) noexcept;
    void socket_closed(const managed_owner* events, number of, std::uint16_t code,
                       bool was_clean) noexcept;

    void SocketClosed(std::optional<Error> error, bool wasClean);
    // Waits for an event of another thread; then no event goes anywhere any more.
    void release() noexcept;

private:
    class connection;

    void connect(const managed_request& request, number as);
    bool take(const std::shared_ptr<managed_socket>& socket,
              const std::shared_ptr<managed_owner>& events, number as);
    void forget(const managed_owner* events) noexcept;
    void open_again(number as) noexcept;
    void plan_again(number as) noexcept;
    std::shared_ptr<managed_socket> current() const;
    // What an operation on the managed socket throws becomes an error event.
    template <typename operation>
    void attempt(operation what);

    std::shared_ptr<managed_socket> m_socket;

public:
    // Set before the first Open, and emptied by release().
    std::function<void()> onOpened;
    std::function<void(std::optional<Error>, bool)> onClosed;
    std::function<void(std::string)> onMessage;
    std::function<void(std::string, std::optional<Error>)> onError;
    const cWebSocket_Sharp* owner = nullptr;
    // Takes a binary message with its length; false to leave it to onMessage.
    std::function<bool(const std::string&)> onBinary;
    std::function<void(std::int32_t, const char*)> onGoodbye;
    std::function<void(const std::string&)> onFault;

private:
    mutable loam::ready_mutex m_socket_mutex;
    // Of what is asked for: under the same lock.
    number m_number = 0;
    managed_request m_request;
    // Those that have not told their close.
    std::vector<std::shared_ptr<managed_owner>> m_connections;
    pennywort::websocket::back_off m_back_off;
    pennywort::websocket::delayed_work m_again;
    // Its own thread may take it again: a handler may destroy its socket.
    loam::ready_recursive_mutex m_event_mutex;
};
