// host/system/outcome.h - how an operation of the program ended, with the line that its user is
// told.
#pragma once

#include <string>
#include <utility>

namespace pennywort::host {

class [[nodiscard]] outcome {
public:
    enum class kind {
        fine,
        failed,
        refused,        // nothing has begun: the user has asked for what cannot be
        reader_closed,  // whoever read our output has closed it: the end, but not a fault of ours
    };

    static outcome fine() { return outcome(kind::fine, {}); }
    // `text` is one line without a full stop, fit to stand behind "pennywort: ".
    static outcome failed(std::string text) { return outcome(kind::failed, std::move(text)); }
    static outcome refused(std::string text) { return outcome(kind::refused, std::move(text)); }
    // Its text is short enough for a string's own place, and needs no memory.
    static outcome no_memory() { return failed("out of memory"); }
    static outcome reader_closed() {
        return outcome(kind::reader_closed, "the reader of the output has closed it");
    }

    bool ok() const { return m_kind == kind::fine; }
    kind what() const { return m_kind; }
    const std::string& text() const { return m_text; }

private:
    outcome(kind what, std::string text) : m_kind(what), m_text(std::move(text)) {}

    kind m_kind;
    std::string m_text;
};

}  // namespace pennywort::host
