// handler_list.h - the handlers of a server in the order of their installation.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "httpserver.h"

namespace pennywort::httpserver {

// One reference to a handler: a handler may delete its server, which releases the server's own.
class handler_reference {
public:
    explicit handler_reference(cHttpHandler* handler) : m_handler(handler) {}
    handler_reference(const handler_reference&) = delete;
    handler_reference& operator=(const handler_reference&) = delete;
    ~handler_reference() {
        if (m_handler != nullptr) m_handler->Release();
    }

    cHttpHandler* get() const { return m_handler; }

private:
    cHttpHandler* m_handler;
};

// Threads: any.
class handler_list {
public:
    handler_list() = default;
    handler_list(const handler_list&) = delete;
    handler_list& operator=(const handler_list&) = delete;
    ~handler_list();

    // Takes a reference.
    void add(cHttpHandler& handler);
    // A new reference to the handler of that number, or null past the last.
    cHttpHandler* take(std::size_t index);
    void release_all();

private:
    std::mutex m_mutex;
    std::vector<cHttpHandler*> m_handlers;
};

}  // namespace pennywort::httpserver
