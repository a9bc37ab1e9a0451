// client_owner_use.h - a client's owner for the length of a callback; for the client's own files.
#pragma once

#include <mutex>

#include "webdisplay/webdisplay_browser_client.h"

namespace pennywort::webdisplay {

// The owner, if there is one, for the length of a callback: the owner lock is held, and the display
// cannot go away, even if the host releases it in the callback.
class webdisplay_browser_client::owner_use {
public:
    explicit owner_use(webdisplay_browser_client& client) : m_lock(client.m_owner_lock) {
        if (client.m_owner != nullptr && client.m_owner->AddRefIfAlive()) m_owner = client.m_owner;
    }
    owner_use(const owner_use&) = delete;
    owner_use& operator=(const owner_use&) = delete;
    ~owner_use() {
        m_lock.unlock();
        if (m_owner != nullptr) m_owner->Release();
    }

    explicit operator bool() const { return m_owner != nullptr; }
    cWebDisplayCEFBrowser* operator->() const { return m_owner; }
    cWebDisplayCEFBrowser& operator*() const { return *m_owner; }

private:
    std::unique_lock<std::recursive_mutex> m_lock;
    cWebDisplayCEFBrowser* m_owner = nullptr;
};

}  // namespace pennywort::webdisplay
