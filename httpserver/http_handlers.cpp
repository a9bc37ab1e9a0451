// httpserver/http_handlers.cpp - see the header for the contract.
#include "httpserver/http_handlers.h"

#include <utility>

namespace pennywort {

http_handlers::~http_handlers() { release_all(); }

void http_handlers::add(cHttpHandler& handler) {
    handler.AddRef();
    const std::lock_guard lock(m_mutex);
    m_handlers.push_back(&handler);
}

cHttpHandler* http_handlers::take(std::size_t index) {
    const std::lock_guard lock(m_mutex);
    if (index >= m_handlers.size()) return nullptr;
    m_handlers[index]->AddRef();
    return m_handlers[index];
}

// Outside the lock, since a handler that ends may do anything.
void http_handlers::release_all() {
    std::vector<cHttpHandler*> last;
    {
        const std::lock_guard lock(m_mutex);
        last = std::exchange(m_handlers, {});
    }
    for (cHttpHandler* handler : last) handler->Release();
}

}  // namespace pennywort
