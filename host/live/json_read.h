// host/live/json_read.h - reads one flat JSON object: what programs send this one.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace pennywort::host {

// null is the empty one.
using json_value = std::variant<std::monostate, bool, double, std::string>;

class json_object {
public:
    // Nothing, and a reason, for a text that is no JSON object or no UTF-8, that holds a list or
    // another object, names a member twice, or holds a NUL, half of a surrogate pair or a number
    // that a double cannot hold.
    static std::optional<json_object> parse(std::string_view text, std::string& reason);

    // Whether there is a member of that name, whatever its kind.
    bool has(const std::string& name) const { return m_members.count(name) != 0; }
    // Null where there is no member of that name and kind.
    const std::string* text(const std::string& name) const;
    const double* number(const std::string& name) const;
    const bool* truth(const std::string& name) const;

private:
    std::map<std::string, json_value> m_members;
};

}  // namespace pennywort::host
