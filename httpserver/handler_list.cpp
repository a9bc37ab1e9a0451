// httpserver/handler_list.cpp - see the header for the contract.
#include "httpserver/handler_list.h"

#include <utility>

namespace pennywort::httpserver {

handler_list::~handler_list() { release_all(); }

void handler_list::add(cHttpHandler& handler) {
    handler.AddRef();
    const std::lock_guard lock(m_mutex);
    m_handlers.push_back(&handler);
}

cHttpHandler* handler_list::take(std::size_t index) {
    const std::lock_guard lock(m_mutex);
    if (index >= m_handlers.size()) return nullptr;
    m_handlers[index]->AddRef();
    return m_handlers[index];
}

// Outside the lock, since a handler that ends may do anything.
void handler_list::release_all() {
    std::vector<cHttpHandler*> last;
    {
        const std::lock_guard lock(m_mutex);
        last = std::exchange(m_handlers, {});
    }
    for (cHttpHandler* handler : last) handler->Release();
}

}  // namespace pennywort::httpserver
