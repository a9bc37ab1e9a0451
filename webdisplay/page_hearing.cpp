// page_hearing.cpp - see the header for the contract.
#include "webdisplay/page_hearing.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using json = nlohmann::json;

// As a script may hold it, whatever it is.
std::string literal(const std::string& text) {
    return json(text).dump(-1, ' ', true, json::error_handler_t::replace);
}

constexpr const char* k_bent_warning =
    "console.warn('thinternal sound: a script of the page has changed what films and sounds are "
    "driven by (Promise, Array, JSON or the like), and they are not in the film as they should "
    "be')";

constexpr const char* k_worker_warning =
    "console.warn('thinternal clock: a worker has been busy for 20 s of one frame and is left "
    "behind: until it is done, the film goes on without it')";

bool has_thrown(const json& result) { return !message_part(result, "/exceptionDetails").is_null(); }

}  // namespace

void page_hearing::prepare() {
    m_inspector.call("Runtime.addBinding",
                     {{"name", page_scripts::k_file_binding},
                      {"executionContextName", page_scripts::k_sound_world_name}});
}

// With its document a page has lost the world beside it.
void page_hearing::hear(const std::string& method, const json& parameters) {
    if (method == "Runtime.executionContextsCleared") {
        m_world = 0;
    } else if (method == "Page.frameNavigated") {
        if (message_part(parameters, "/frame/parentId").is_null()) page_begins();
    } else if (method == "Runtime.bindingCalled") {
        const bool is_file = message_text(parameters, "/name") == page_scripts::k_file_binding;
        const bool is_ours = message_part(parameters, "/executionContextId") == m_world;
        if (is_file && is_ours) hand_file(message_text(parameters, "/payload"));
    }
}

void page_hearing::page_begins() {
    m_world = 0;
    m_has_warned = m_has_told_worker = m_has_told_fetch = false;
}

// Said in the world beside the page's, whose console no script of the page can reach.
void page_hearing::warn(const std::string& script, bool& has_warned) {
    if (std::exchange(has_warned, true)) return;
    with_world([this, script] { evaluate(script, {}); });
}

void page_hearing::driver_threw() { warn(k_bent_warning, m_has_warned); }

void page_hearing::worker_left() { warn(k_worker_warning, m_has_told_worker); }

void page_hearing::fetch_left(std::chrono::milliseconds patience) {
    char script[200];
    std::snprintf(script, sizeof script,
                  "console.warn('thinternal clock: a fetch that does not end, or a busy script, "
                  "has held the time of the page for %g s, which goes on without it')",
                  std::chrono::duration<double>(patience).count());
    warn(script, m_has_told_fetch);
}

void page_hearing::take(const std::string& said, bool is_hurried, std::function<void()> over) {
    const std::size_t end = std::min(said.find('\n'), said.size());
    auto made = page_samples_of(std::string_view(said).substr(0, end));
    const auto tell = [this, made = std::move(made),
                       over = std::move(over)](const std::string& heard) {
        const auto all = together(made, page_samples_of(heard));
        over();
        if (all) m_port.page_sounds(*all);
    };
    const std::string text = said.substr(std::min(end + 1, said.size()));
    // One that is asked once more may wait for a file.
    if (text.empty() && !(is_hurried && m_world != 0)) return tell({});
    with_world([this, text, is_hurried, tell] { order(text, is_hurried, tell); });
}

void page_hearing::order(const std::string& text, bool is_hurried,
                         std::function<void(const std::string& heard)> told) {
    evaluate(page_scripts::heard_of(literal(text), is_hurried),
             [this, told = std::move(told)](const json& result) {
                 if (result.is_null()) m_world = 0;
                 if (has_thrown(result)) driver_threw();
                 told(value_of_result(result));
             });
}

// It is made when it is needed first. Without one the files are silent.
void page_hearing::with_world(std::function<void()> work) {
    if (m_world != 0) return work();
    m_inspector.call("Page.getFrameTree", json::object(),
                     [this, work = std::move(work)](const json& result) {
                         make_world(message_text(result, "/frameTree/frame/id"), work);
                     });
}

void page_hearing::make_world(const std::string& frame, std::function<void()> work) {
    const json asked{{"frameId", frame}, {"worldName", page_scripts::k_sound_world_name}};
    m_inspector.call(
        "Page.createIsolatedWorld", asked, [this, work = std::move(work)](const json& result) {
            const json& number = message_part(result, "/executionContextId");
            m_world = number.is_number_integer() ? number.get<std::int64_t>() : 0;
            evaluate(page_scripts::sound_world_script(), [work](const json&) { work(); });
        });
}

void page_hearing::evaluate(const std::string& expression, page_inspector::receiver answered) {
    m_inspector.call("Runtime.evaluate",
                     {{"expression", expression},
                      {"contextId", m_world},
                      {"awaitPromise", true},
                      {"returnByValue", true}},
                     std::move(answered));
}

// In parts, since each becomes one message.
void page_hearing::hand_file(const std::string& url) {
    constexpr std::size_t k_part = 3 << 18;
    const std::string bytes = m_port.bytes_of_file(url);
    const std::string named = literal(url);
    std::string_view left = bytes;
    do {
        evaluate(page_scripts::file_part(named, bytes.size(), left.substr(0, k_part)), {});
        left.remove_prefix(std::min(k_part, left.size()));
    } while (!left.empty());
}

}  // namespace pennywort::webdisplay
