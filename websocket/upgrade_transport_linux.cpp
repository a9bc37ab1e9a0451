// websocket/upgrade_transport_linux.cpp - Linux half of upgrade_transport.h, over Boost.Beast on
// the calling threads. Windows half: upgrade_transport_win.cpp.
#include <utility>

#include "core/run/guarded.h"
#include "websocket/driven_link.h"
#include "websocket/link/link_address.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

namespace {

class beast_upgraded_socket final : public upgraded_socket {
public:
    explicit beast_upgraded_socket(std::shared_ptr<driven_link> link) : m_link(std::move(link)) {}
    ~beast_upgraded_socket() override { m_link->drop(); }

    received_piece receive(std::span<char> into) override { return m_link->receive(into); }
    bool send_text(std::string_view text) override { return m_link->send(text, true); }
    bool send_binary(std::string_view bytes) override { return m_link->send(bytes, false); }
    bool close(std::uint16_t code) override {
        // Also where there is no memory to say goodbye with.
        const bool is_closed = run::guarded_or(false, "cWebSocket_WinHttp", "the goodbye",
                                               [&] { return m_link->close(code); });
        // A receive that was not part of the goodbye would go on waiting.
        m_link->drop();
        return is_closed;
    }
    close_report query_close_status() override { return m_link->goodbye(); }
    void drop() noexcept override { m_link->drop(); }
    std::string fault() const override { return m_link->fault(); }

private:
    const std::shared_ptr<driven_link> m_link;
};

// Beast sends the request and reads its answer in one operation, so that all steps before the last
// only prepare it.
class beast_request final : public transport_request {
public:
    explicit beast_request(link_request request) : m_request(std::move(request)) {}

    bool ask_for_upgrade() override { return true; }
    bool send() override {
        m_request.looks_up_in_place = true;
        m_link = std::make_shared<driven_link>();
        m_is_open = m_link->open(std::move(m_request));
        return m_is_open || m_link->is_refused();
    }
    bool receive_response() override { return true; }
    std::shared_ptr<upgraded_socket> complete_upgrade() override {
        return m_is_open ? std::make_shared<beast_upgraded_socket>(m_link) : nullptr;
    }
    std::string fault() const override {
        return m_link == nullptr ? std::string() : m_link->fault();
    }

private:
    link_request m_request;
    std::shared_ptr<driven_link> m_link;
    bool m_is_open = false;
};

class beast_transport_connection final : public transport_connection {
public:
    beast_transport_connection(std::string host, std::uint16_t port, transport_settings settings)
        : m_host(std::move(host)), m_port(port), m_settings(std::move(settings)) {}

    std::unique_ptr<transport_request> open_request(const std::string& path,
                                                    bool is_secure) override {
        return std::make_unique<beast_request>(
            request_for_host(m_host, m_port, is_secure, path, m_settings));
    }

private:
    const std::string m_host;
    const std::uint16_t m_port;
    const transport_settings m_settings;
};

class beast_session final : public transport_session {
public:
    explicit beast_session(transport_settings settings) : m_settings(std::move(settings)) {}

    std::shared_ptr<transport_connection> connect(const std::string& host,
                                                  std::int32_t port) override {
        if (host.empty() || port < 1 || port > 0xFFFF) return nullptr;
        return std::make_shared<beast_transport_connection>(host, static_cast<std::uint16_t>(port),
                                                            m_settings);
    }

private:
    const transport_settings m_settings;
};

}  // namespace

std::shared_ptr<transport_session> transport_session::open(const transport_settings& settings) {
    return std::make_shared<beast_session>(settings);
}

}  // namespace pennywort::websocket
