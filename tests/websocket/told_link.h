// told_link.h - a link without a network, whose events come when a test says so.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "websocket/link/link.h"
#include "websocket/link/loop_state.h"

namespace pennywort::websocket {

class told_link final : public link {
public:
    told_link(loop& on, std::weak_ptr<link_listener> to) : m_loop(on), m_listener(std::move(to)) {}

    void open(link_request) noexcept override {
        tell([](link_listener& to) { to.link_opened(); });
    }
    void receive(std::span<char>) noexcept override {}
    void send(std::string_view bytes, bool) noexcept override {
        m_sending = bytes;
        is_sending = true;
        if (!sends_at_once) return;
        std::function<void(boost::system::error_code, std::size_t)> done =
            [this](boost::system::error_code, std::size_t) { m_listener.lock()->link_sent(); };
        m_loop.inside().ready.add(done, {}, bytes.size());
    }
    void ping() noexcept override {}
    void bound_by_goodbye() noexcept override {}
    void close(std::uint16_t) noexcept override {}
    void drop() noexcept override {}
    void keep(std::shared_ptr<const void> what) noexcept override { m_kept = std::move(what); }

    // On the loop's thread, as soon as that comes to it.
    void tell(std::function<void(link_listener&)> what) {
        m_loop.post([listener = m_listener, told = std::move(what)] {
            if (const auto to = listener.lock()) told(*to);
        });
    }
    std::string_view bytes() const { return m_sending; }
    bool has_listener() const { return !m_listener.expired(); }

    std::atomic<bool> is_sending{false};
    bool sends_at_once = false;

private:
    loop& m_loop;
    const std::weak_ptr<link_listener> m_listener;
    std::string_view m_sending;
    std::shared_ptr<const void> m_kept;
};

}  // namespace pennywort::websocket
