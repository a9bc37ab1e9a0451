// bench/websocket/own_clients.cpp - see clients.h.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "bench/websocket/clients.h"
#include "websocket.h"

namespace {

constexpr std::chrono::seconds k_patience{10};

class system_socket final : public cWebSocket_WinHttp {
public:
    void SendPing() override {}
};

std::shared_ptr<cWebSocket> make_system() { return std::make_shared<system_socket>(); }

class own_client final : public client {
public:
    explicit own_client(std::function<std::shared_ptr<cWebSocket>()> make)
        : m_make(std::move(make)) {}

    bool connect(std::uint16_t port) override {
        const auto socket = m_make();
        bool is_open = false;
        bool is_over = false;
        const auto tell = [&](bool& what) {
            const std::lock_guard lock(m_mutex);
            what = true;
            m_changed.notify_all();
        };
        m_tell = [&](bool opened) { tell(opened ? is_open : is_over); };
        socket->SetOpenedHandler([this](const std::shared_ptr<cWebSocket>&) { m_tell(true); });
        socket->SetErrorHandler([this](cWebSocket::Error) { m_tell(false); });
        socket->SetMessageHandler([this, raw = socket.get()](const char* text) {
            ++m_count;
            if (!m_is_stopping) return raw->Send(text);
            const std::lock_guard lock(m_mutex);
            m_is_stopped = true;
            m_changed.notify_all();
        });
        socket->Open(("ws://127.0.0.1:" + std::to_string(port) + "/").c_str(), 0);
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, k_patience, [&] { return is_open || is_over; });
        m_tell = [](bool) {};
        m_sockets.push_back(socket);
        return is_open && !is_over;
    }

    std::uint64_t play(const std::string& message, std::chrono::milliseconds time) override {
        m_count = 0;
        m_is_stopping = m_is_stopped = false;
        m_sockets.back()->Send(message.c_str());
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, time, [] { return false; });
        const std::uint64_t count = m_count;
        m_is_stopping = true;
        m_changed.wait_for(lock, k_patience, [this] { return m_is_stopped; });
        return count;
    }

private:
    const std::function<std::shared_ptr<cWebSocket>()> m_make;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::function<void(bool opened)> m_tell;
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<bool> m_is_stopping{false};
    bool m_is_stopped = false;
    std::vector<std::shared_ptr<cWebSocket>> m_sockets;
};

}  // namespace

std::unique_ptr<client> make_own_system() { return std::make_unique<own_client>(make_system); }
std::unique_ptr<client> make_own_asynchronous() {
    return std::make_unique<own_client>(cWebSocket::Factory);
}
