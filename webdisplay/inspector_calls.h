// inspector_calls.h - calls of a page's inspector that the host makes before there is a browser.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "loam/returned_mutex.h"

namespace pennywort::webdisplay {

struct inspector_call {
    std::string method;
    std::string parameters;  // a JSON object, or empty
    std::function<void(const std::string& result)> told;
};

// Any thread.
class inspector_calls {
public:
    // Keeps the call, and takes it out of `call`, unless there is a browser.
    bool keep(inspector_call& call) {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_has_browser) return false;
        m_kept.push_back(std::move(call));
        return true;
    }
    bool has_kept() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return !m_kept.empty();
    }
    // There is a browser: what was kept, in its order.
    std::vector<inspector_call> take() {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_has_browser = true;
        return std::exchange(m_kept, {});
    }
    // There is none any more.
    void browser_gone() {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_has_browser = false;
    }

private:
    mutable loam::returned_mutex m_lock;
    bool m_has_browser = false;
    std::vector<inspector_call> m_kept;
};

}  // namespace pennywort::webdisplay
