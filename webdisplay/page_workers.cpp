// page_workers.cpp - see the header for the contract.
#include "webdisplay/page_workers.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace pennywort::webdisplay {

namespace {

using json = nlohmann::json;

}  // namespace

// Those of the page alone come by themselves, and so do its service workers. One that several pages
// may share has to be asked for. A worker whose process ends may be started again, and then stands
// until it is told to run.
void page_workers::hear(const std::string& method, const json& params, const std::string& session) {
    const std::string type = message_text(params, "/targetInfo/type");
    if (method == "Target.targetCreated" && type == "shared_worker") {
        const std::string target = message_text(params, "/targetInfo/targetId");
        m_inspector.call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}});
    } else if (method == "Target.attachedToTarget") {
        const bool is_shared = type == "service_worker" || type == "shared_worker";
        const std::string its = message_text(params, "/sessionId");
        if (is_shared) m_shared.push_back(its);
        if (is_shared || type == "worker") begins(its);
    } else if (method == "Target.detachedFromTarget") {
        ends(message_text(params, "/sessionId"));
        std::erase(m_shared, message_text(params, "/sessionId"));
    } else if (method == "Inspector.targetCrashed") {
        ends(session);
    } else if (method == "Inspector.targetReloadedAfterCrash" && !session.empty()) {
        begins(session);
        m_inspector.call("Runtime.runIfWaitingForDebugger", json::object(), {}, session);
    }
}

// What it says of itself is the host's to hear; nobody waits for that.
void page_workers::begins(const std::string& session) {
    m_all.push_back(session);
    m_inspector.call("Runtime.enable", json::object(), {}, session);
}

// One that is being woken will not answer any more.
void page_workers::ends(const std::string& session) {
    for (auto* some : {&m_all, &m_woken, &m_left}) std::erase(*some, session);
}

void page_workers::wake() {
    for (const auto& worker : m_all) {
        m_woken.push_back(worker);
        m_inspector.call(
            "Runtime.evaluate", {{"expression", "0"}},
            [this, worker](const json&) { answers(worker); }, worker);
    }
}

void page_workers::answers(const std::string& session) {
    std::erase(m_woken, session);
    if (std::erase(m_left, session) > 0) m_all.push_back(session);
}

bool page_workers::is_shared(const std::string& session) const {
    return std::find(m_shared.begin(), m_shared.end(), session) != m_shared.end();
}

bool page_workers::leave() {
    bool has_own = false;
    for (const auto& session : std::exchange(m_woken, {})) {
        has_own |= !is_shared(session);
        std::erase(m_all, session);
        m_left.push_back(session);
    }
    return has_own;
}

// Whether one that was left has come to an end is not heard then.
void page_workers::forget() {
    m_woken.clear();
    for (const auto& session : std::exchange(m_left, {})) m_all.push_back(session);
}

void page_workers::next_page() {
    for (auto* some : {&m_all, &m_left}) {
        std::erase_if(*some, [this](const std::string& session) { return !is_shared(session); });
    }
}

}  // namespace pennywort::webdisplay
