// event_log.h - what a socket has told its host, in order, as lines: "opened", "message hi",
// "error 2", "closed clean", "closed unclean", "closed 5 unclean".
#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/eventually.h"
#include "websocket.h"

class event_log {
public:
    void listen_to(cWebSocket& socket) {
        socket.SetOpenedHandler([this](const std::shared_ptr<cWebSocket>&) { add("opened"); });
        socket.SetMessageHandler([this](const char* text) { add("message " + std::string(text)); });
        socket.SetErrorHandler([this](cWebSocket::Error error) {
            add("error " + std::to_string(static_cast<int>(error)));
        });
        socket.SetClosedHandler([this](std::optional<cWebSocket::Error> error, bool was_clean) {
            add("closed " + (error ? std::to_string(static_cast<int>(*error)) + " " : "") +
                (was_clean ? "clean" : "unclean"));
        });
    }

    // And tells the server what has been heard. A managed library may raise a close before the
    // message in front of it, which is lost then; a server that waits for this sees none of that.
    void listen_and_answer(cWebSocket& socket) {
        listen_to(socket);
        socket.SetOpenedHandler([this](const std::shared_ptr<cWebSocket>& self) {
            add("opened");
            self->Send("opened");
        });
        socket.SetMessageHandler([this, &socket](const char* text) {
            add("message " + std::string(text));
            socket.Send("heard");
        });
    }

    void add(std::string line) {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(std::move(line));
        m_changed.notify_all();
    }
    // False if that many do not come in time.
    bool wait_for(std::size_t count) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, pennywort::tests::k_patience,
                                  [&] { return m_lines.size() >= count; });
    }
    bool wait_for_line(const std::string& line) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, pennywort::tests::k_patience, [&] {
            return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end();
        });
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }
    // "a | b | c"
    std::string text() const {
        std::string all;
        for (const std::string& line : lines()) all += (all.empty() ? "" : " | ") + line;
        return all;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
};

// A wait that another thread ends.
class gate {
public:
    void open() {
        const std::lock_guard lock(m_mutex);
        m_is_open = true;
        m_changed.notify_all();
    }
    bool wait() {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, pennywort::tests::k_patience, [this] { return m_is_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_is_open = false;
};

// The system transport as a host completes it.
class system_socket : public cWebSocket_WinHttp {
public:
    void SendPing() override {}
};
