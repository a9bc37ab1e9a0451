// server_loop.h - the machinery of a server: it listens, accepts, waits for all sockets at once and
// serves those that are ready.
//
// The server and its thread hold it together. A handler may delete the server: that ends the loop,
// and the thread leaves it when the handler has returned, with all that it touches still there.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "core/run/clock.h"
#include "httpserver.h"
#include "httpserver/connection_list.h"
#include "httpserver/exchanges.h"
#include "httpserver/handler_list.h"
#include "httpserver/server_counts.h"

namespace pennywort::httpserver {

class server_loop {
public:
    // All time-outs go by `clock`; how long one wait sleeps is the system's affair.
    server_loop(const cHttpServer* owner, std::int32_t port, std::int32_t buffer_size,
                const cHttpServerSettings& settings,
                const run::monotonic_clock& clock = run::monotonic_clock::system());

    // The server that has the thread; its copies share the loop.
    const cHttpServer* owner() const { return m_owner; }

    // The body of the thread, in two steps: tries to listen, and then serves until it is stopped or
    // ended. Whoever waits for the first is told with the second: what stops it from then on
    // counts.
    void listen();
    void run();
    // Any thread. Before run has begun to serve it has no effect.
    void stop();
    // Any thread: ends the loop for ever, and the wait that it is in.
    void end();
    // When no other thread is in the loop: releases the handlers and closes all sockets.
    void close();
    // The loop will not run. Without this, a thread that waits for ListenStatus would wait for
    // ever.
    void fail() { listening.set(zSocket::k_no_resources, 0); }

    zSocket* listen_socket() { return m_listen_socket.get(); }
    zHeap<_zSocket_select*>& watch_set() { return m_watch_set; }
    connection_list& connections() { return m_connections; }
    handler_list& handlers() { return m_handlers; }
    char* receive_buffer() { return m_receive_buffer.get(); }
    std::int32_t buffer_size() const { return m_buffer_size; }
    const server_counts& counts() const { return m_counts; }

    listen_result listening;

private:
    zStatus create_listen_socket();
    void serve_round();
    zStatus wait_for_events(std::int32_t bound, std::int32_t& ready);
    void serve_connections(std::int32_t ready);
    fate serve(connection& one);
    void accept();
    zStatus accept_incoming();
    bool has_room();
    bool drop_untrusted();
    bool drop_untrusted(bool (*may_go)(const connection&));
    void pause_accepting();
    void add_socket_to_watch(_zSocket_select* entry);
    void data_add(std::unique_ptr<zSocket> socket);
    void data_rm(std::int32_t index);
    void close_overdue();
    bool is_overdue(const connection& one) const;
    std::int32_t wait_time() const;
    bool is_running() const;

    const cHttpServer* const m_owner;
    const cHttpServerSettings m_settings;
    const run::monotonic_clock& m_clock;
    const std::int32_t m_port;
    const std::int32_t m_buffer_size;
    const std::unique_ptr<zSocket> m_listen_socket;
    const std::unique_ptr<zSocketWaker> m_waker;
    const std::unique_ptr<char[]> m_receive_buffer;
    zHeap<_zSocket_select*> m_watch_set;
    connection_list m_connections;
    handler_list m_handlers;
    server_counts m_counts;
    exchanges m_exchanges;
    std::atomic<bool> m_is_running{false};
    std::atomic<bool> m_has_ended{false};

    // Of the thread alone.
    zStatus m_listen_status = 0;
    _zSocket_select m_listen_entry;
    std::int64_t m_now = 0;  // of this round, in microseconds
    std::int64_t m_next_check = 0;
    std::int64_t m_accept_again = 0;  // 0: now
    bool m_is_short = false;          // of descriptors or memory, at the last attempt
    bool m_is_brisk = false;          // the last wait was a short one
};

}  // namespace pennywort::httpserver
