// host/render/open_requests.h - what a page has asked for and has not got yet, in the order in
// which it has asked.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace pennywort::host {

class open_requests {
public:
    // An event of the inspector, with its parameters as JSON; any.
    void hear(std::string_view method, std::string_view parameters);
    void page_begins() { m_open.clear(); }
    // Of the one that has been open for longest; empty if none is.
    std::string oldest() const { return m_open.empty() ? std::string() : m_open.front().second; }

private:
    std::deque<std::pair<std::string, std::string>> m_open;  // each one's number and URL
};

}  // namespace pennywort::host
