// memory_steps_test.cpp - both transports over connections that are none, whose memory runs out at
// any moment.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string>

#include "loam/ready_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/failing_memory.h"
#include "tests/websocket/counted_events.h"
#include "websocket.h"
#include "websocket/managed/managed_maker.h"
#include "websocket/session_maker.h"

namespace pennywort::websocket {
namespace {

using tests::eventually;

constexpr char k_long_text[] = "a message that is too long for the text itself";

// The socket of a peer that sends a text of two pieces and one of six, and no more.
class quiet_upgraded_socket final : public upgraded_socket {
public:
    received_piece receive(std::span<char> into) override {
        if (m_given < 8) {
            std::fill(into.begin(), into.end(), 'x');
            ++m_given;
            const bool is_last = m_given == 2 || m_given == 8;
            return {receive_status::ok,
                    is_last ? piece_kind::text_message : piece_kind::text_fragment, into.size()};
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, tests::k_patience, [this] { return m_is_over; });
        return {};
    }
    bool send_text(std::string_view) override { return true; }
    bool send_binary(std::string_view) override { return true; }
    bool close(std::uint16_t) override {
        drop();
        return true;
    }
    close_report query_close_status() override { return {}; }
    void drop() noexcept override {
        const std::lock_guard lock(m_mutex);
        m_is_over = true;
        m_changed.notify_all();
    }

private:
    int m_given = 0;
    // Its first lock may come where no memory can be had, and where nothing may be thrown.
    loam::ready_mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_over = false;
};

class quiet_request final : public transport_request {
public:
    bool ask_for_upgrade() override { return true; }
    bool send() override { return true; }
    bool receive_response() override { return true; }
    std::shared_ptr<upgraded_socket> complete_upgrade() override {
        return std::make_shared<quiet_upgraded_socket>();
    }
};

class quiet_connection final : public transport_connection {
public:
    std::unique_ptr<transport_request> open_request(const std::string&, bool) override {
        return std::make_unique<quiet_request>();
    }
};

class quiet_session final : public transport_session {
public:
    std::shared_ptr<transport_connection> connect(const std::string&, std::int32_t) override {
        return std::make_shared<quiet_connection>();
    }
};

class quiet_system_socket final : public cWebSocket_WinHttp {
public:
    void SendPing() override {}
};

class WebSocketStepsMemory : public testing::Test {
protected:
    WebSocketStepsMemory() {
        current_session_maker() = [](const transport_settings&) {
            return std::make_shared<quiet_session>();
        };
    }
    ~WebSocketStepsMemory() override {
        current_session_maker() = &transport_session::open;
        current_managed_maker() = &managed_socket::make;
    }
};

TEST_F(WebSocketStepsMemory, TheSystemTransportsCallersRunOutOfIt) {
    bool is_made = false;
    event_counts told;
    const int failures = with_each_allocation_failing(
        [&] {
            is_made = false;
            told.opened = told.messages = told.ends = 0;
            try {
                quiet_system_socket socket;
                is_made = true;
                count_events(socket, told);
                socket.Open("ws://a-host-with-a-name-that-is-long/path", 0);
                socket.Send(k_long_text);
                socket.SendBinary("b", 1);
                socket.Close();
            } catch (const std::bad_alloc&) {
            }
        },
        [&] { EXPECT_TRUE(!is_made || told.opened + told.ends > 0); });
    EXPECT_GT(failures, 5);
}

TEST_F(WebSocketStepsMemory, TheReceiveThreadRunsOutOfIt) {
    struct one_run {
        event_counts told;
        int count = 0;
        std::atomic<bool> has_failed{true};
    };
    int failures = 0;
    for (bool goes_on = true; goes_on; ++failures) {
        one_run now;
        now.count = failures;
        quiet_system_socket socket;
        count_events(socket, now.told);
        socket.SetMessageHandler([&now](const char*) {
            if (now.told.messages == 0) {
                fail_memory_after(now.count);
            } else {
                now.has_failed = stop_failing_memory();
            }
            ++now.told.messages;
        });
        socket.SetErrorHandler([&now](cWebSocket::Error) {
            now.has_failed = stop_failing_memory();
            ++now.told.ends;
        });
        socket.Open("ws://a/", 0);
        ASSERT_TRUE(eventually([&] { return now.told.messages == 2 || now.told.ends > 0; }))
            << failures;
        socket.Close();
        goes_on = now.has_failed;
    }
    EXPECT_GT(failures, 1);
}

// A socket that is connected when the test says so.
class quiet_managed_socket final : public managed_socket {
public:
    void connect_async() override {}
    void close_async() override {}
    void send_text(std::string_view) override {}
    void send_binary(std::string_view) override {}
    void ping() override {}
};

void use_all(cWebSocket& socket, const std::weak_ptr<managed_owner>& owner) {
    socket.Open("ws://a-host-with-a-name-that-is-long/", 0);
    const auto events = owner.lock();
    if (events == nullptr) return;
    events->socket_opened();
    events->message_received(k_long_text, false);
    events->message_received(k_long_text, true);
    events->goodbye_received(1008, k_long_text);
    socket.Send(k_long_text);
    socket.SendBinary("b", 1);
    socket.SendPing();
    socket.Close();
    events->socket_closed(1006, false);
}

TEST_F(WebSocketStepsMemory, TheAsynchronousTransportRunsOutOfIt) {
    std::weak_ptr<managed_owner> owner;
    current_managed_maker() = [&](const managed_request&, const std::weak_ptr<managed_owner>& to) {
        owner = to;
        return std::make_shared<quiet_managed_socket>();
    };
    bool is_made = false;
    event_counts told;
    const int failures = with_each_allocation_failing(
        [&] {
            is_made = false;
            told.opened = told.messages = told.ends = 0;
            try {
                const auto socket = cWebSocket::Factory();
                if (socket == nullptr) return;
                count_events(*socket, told);
                is_made = true;
                use_all(*socket, owner);
            } catch (const std::bad_alloc&) {
                // Of the texts that the test itself makes.
                is_made = false;
            }
            owner.reset();
        },
        [&] { EXPECT_TRUE(!is_made || told.opened + told.ends > 0); });
    EXPECT_GT(failures, 5);
}

}  // namespace
}  // namespace pennywort::websocket
