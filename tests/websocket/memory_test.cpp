// memory_test.cpp - sockets whose memory runs out at any moment, on the host's thread and on the
// binding's.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "tests/support/eventually.h"
#include "tests/support/failing_memory.h"
#include "tests/websocket/counted_events.h"
#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"
#include "websocket.h"

namespace {

using pennywort::tests::eventually;
using pennywort::websocket::count_events;
using pennywort::websocket::event_counts;

// More than one message takes on the binding's thread.
constexpr int k_most_allocations = 40;

class quiet_socket final : public cWebSocket_WinHttp {
public:
    void SendPing() override {}
};

void echo_once(peer_connection& connection) {
    connection.accept();
    const peer_frame frame = connection.receive_frame();
    if (frame.opcode == frames::k_text) connection.send(frames::text(frame.payload));
    if (frame.opcode != frames::k_close) connection.receive_frame();
    connection.send(frames::close(1000));
}

TEST(WebSocketMemory, TheHostsThreadRunsOutOfIt) {
    const scripted_peer peer(echo_once);
    const std::string url = peer.url();
    bool has_hung = false;
    const int failures = with_each_allocation_failing(
        [&] {
            event_counts told;
            const auto socket = cWebSocket::Factory();
            if (socket == nullptr) return;
            count_events(*socket, told);
            socket->Open(url.c_str(), 0);
            has_hung |= !eventually([&] { return told.opened + told.ends > 0; });
            socket->Send("a message that is too long for the text itself");
            socket->Close();
            if (told.opened > 0) has_hung |= !eventually([&] { return told.ends > 0; });
        },
        [&] { EXPECT_FALSE(has_hung); });
    EXPECT_GT(failures, 0);
}

TEST(WebSocketMemory, TheBindingsThreadRunsOutOfIt) {
    const scripted_peer peer(echo_once);
    int ran_out = 0;
    for (int count = 0; count < k_most_allocations; ++count) {
        event_counts told;
        std::atomic<bool> has_failed{false};
        {
            const auto socket = cWebSocket::Factory();
            count_events(*socket, told);
            socket->SetOpenedHandler([&](const std::shared_ptr<cWebSocket>& self) {
                fail_memory_after(count);
                self->Send("a message that is too long for the text itself");
                self->SendPing();
                ++told.opened;
            });
            socket->SetMessageHandler([&](const char*) {
                has_failed = stop_failing_memory();
                ++told.messages;
            });
            socket->SetErrorHandler([&](cWebSocket::Error) {
                const bool is_failed = stop_failing_memory();
                has_failed = has_failed || is_failed;
                ++told.ends;
            });
            socket->Open(peer.url().c_str(), 0);
            // The opened handler may tell of an end before it has come to its own.
            ASSERT_TRUE(eventually([&] {
                return told.opened > 0 && told.messages + told.ends > 0;
            })) << count;
        }
        ran_out += has_failed;
    }
    EXPECT_GT(ran_out, 0);
}

TEST(WebSocketMemory, TheSystemTransportRunsOutOfIt) {
    const scripted_peer peer(echo_once);
    const std::string url = peer.url();
    bool has_hung = false;
    const int failures = with_each_allocation_failing(
        [&] {
            event_counts told;
            // Without memory for the socket itself there is none.
            std::unique_ptr<quiet_socket> socket;
            try {
                socket = std::make_unique<quiet_socket>();
            } catch (const std::bad_alloc&) {
                return;
            }
            count_events(*socket, told);
            socket->Open(url.c_str(), 0);
            socket->Send("a message that is too long for the text itself");
            if (told.opened > 0) {
                has_hung |= !eventually([&] { return told.messages + told.ends > 0; });
            }
        },
        [&] { EXPECT_FALSE(has_hung); });
    EXPECT_GT(failures, 0);
}

}  // namespace
