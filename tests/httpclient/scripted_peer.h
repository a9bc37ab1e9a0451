// scripted_peer.h - a server that does exactly what a test says with each connection, byte by byte.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "loam/socket.h"

// One connection, on a thread of its own. It is closed when the script returns.
class peer_connection {
public:
    // Waits no longer once `is_ending` is set and `waker` has been woken.
    peer_connection(zSocket& socket, zSocketWaker& waker, const std::atomic<bool>& is_ending)
        : m_socket(socket), m_waker(waker), m_is_ending(is_ending) {}

    // Up to the blank line and with it; what came if the client has ended before.
    std::string receive_head();
    std::string receive(std::size_t count);
    // Whether all went out.
    bool send(std::string_view bytes);
    // Waits until the client has closed, and drops what comes before.
    void wait_for_end();
    void reset() { m_socket.Reset(); }

private:
    bool receive_some();

    zSocket& m_socket;
    zSocketWaker& m_waker;
    const std::atomic<bool>& m_is_ending;
    std::string m_received;
};

class scripted_peer {
public:
    using script = std::function<void(peer_connection&)>;

    // Listens at once; each connection runs the script. When the object ends, scripts that wait
    // find their connection ended, and must return then.
    explicit scripted_peer(script each);
    ~scripted_peer();

    std::int32_t port() const { return m_port; }
    // "http://127.0.0.1:port" with a path behind it.
    std::string url(std::string_view path = "/") const;
    int connections() const { return m_connections; }

private:
    struct connection_thread {
        std::unique_ptr<zSocketWaker> waker;
        std::thread thread;
    };

    void serve();
    void run(std::unique_ptr<zSocket> socket);

    const script m_script;
    std::unique_ptr<zSocket> m_listener;
    std::unique_ptr<zSocketWaker> m_waker;
    std::int32_t m_port = 0;
    std::atomic<bool> m_is_ending{false};
    std::atomic<int> m_connections{0};
    std::vector<connection_thread> m_threads;  // of the serving thread, until it has ended
    std::thread m_thread;
};

// A script that sends this for each request.
scripted_peer::script answering(std::string answer);
// A whole answer with its length.
std::string answer_with(std::string_view body, std::string_view more_headers = "");
