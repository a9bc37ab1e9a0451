// page_workers.h - the workers of a page by its own clock: which there are, and when their timers
// have been found due.
//
// A worker sleeps by the machine's clock; a message to it wakes it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "webdisplay/page_inspector.h"

namespace pennywort::webdisplay {

// Belongs to the display thread. The inspector must outlive it.
class page_workers {
public:
    explicit page_workers(page_inspector& inspector) : m_inspector(inspector) {}

    // An event of the inspector.
    void hear(const std::string& method, const nlohmann::json& params, const std::string& session);

    bool is_empty() const { return m_all.empty(); }
    // A message to each of them, which it is to answer.
    void wake();
    bool are_awake() const { return m_woken.empty(); }
    // Goes on without those that have not answered, each of them until it does: by a worker that is
    // busy, maybe with another page's work, no film is to fail. Whether there is one of the page's
    // own.
    bool leave();

    // Nobody waits for their answers any more.
    void forget();
    // Another page is to come. Those that it may share stay attached, and nobody tells of them
    // again.
    void next_page();

private:
    void begins(const std::string& session);
    void ends(const std::string& session);
    void answers(const std::string& session);
    bool is_shared(const std::string& session) const;

    page_inspector& m_inspector;
    std::vector<std::string> m_all;
    std::vector<std::string> m_shared;  // those of them that other pages may have, too
    std::vector<std::string> m_woken;   // those that have not answered yet
    std::vector<std::string> m_left;    // those that are not waited for
};

}  // namespace pennywort::webdisplay
