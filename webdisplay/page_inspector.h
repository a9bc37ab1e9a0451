// page_inspector.h - calls of the inspector's protocol to one page: each answer finds its asker.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace pennywort::webdisplay {

// What a message of the page has at that place ("/targetInfo/type"); null where it has nothing,
// since a page may send anything.
const nlohmann::json& message_part(const nlohmann::json& message, const char* place);
// The same as a text; empty for what is none.
std::string message_text(const nlohmann::json& message, const char* place);

// What an expression came to, by the result of "Runtime.evaluate"; empty for what has thrown.
std::string value_of_result(const nlohmann::json& result);

// Not locked: it belongs to the display thread. Knows nothing of the browser.
class page_inspector {
public:
    using json = nlohmann::json;
    // What came of a call: the member "result" of its answer, or null where the page has refused.
    using receiver = std::function<void(const json& result)>;
    // An event: its method, its "params", and the worker of the page that it is from, if it is.
    using listener = std::function<void(const std::string& method, const json& params,
                                        const std::string& session)>;

    // `first_id` keeps two of one page apart.
    page_inspector(std::function<void(const std::string& message)> send, listener heard,
                   int first_id = 1)
        : m_send(std::move(send)), m_heard(std::move(heard)), m_last_id(first_id - 1) {}

    // Without a receiver the answer is dropped. `session` names a worker of the page.
    void call(const char* method, const json& params, receiver answered = {},
              const std::string& session = {});

    // One message from the page. What is no message of the protocol is ignored.
    void take(std::string_view message);

    // Answers that are still out come to nobody.
    void forget() { m_waiting.clear(); }
    // Answers that are still out have come to nothing, and say so.
    void end();

private:
    void answer(const json& message);

    const std::function<void(const std::string& message)> m_send;
    const listener m_heard;
    int m_last_id;
    std::map<int, receiver> m_waiting;
};

}  // namespace pennywort::webdisplay
