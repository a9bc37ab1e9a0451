// host/app/json.h - JSON that others send this program, and JSON that it writes.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// Its members keep the order in which they were added.
using json = nlohmann::ordered_json;

// The value in one line. Bytes that are no valid UTF-8 become U+FFFD and what is no number becomes
// null, so that the line is JSON whatever a page said. What terminal_text.h does not call plain
// is escaped.
std::string json_text(const json& value);

// `value` with at most `decimals` digits behind its point.
double rounded_to(double value, int decimals);

// One flat JSON object, as programs send it: texts, numbers, truths and nulls by their names.
class json_object {
public:
    // Nothing, and a reason, for a text that is no JSON object or no UTF-8, that holds a list or
    // another object, names a member twice, or holds a NUL, half of a surrogate pair or a number
    // that a double cannot hold. Reading stops at the first of these.
    static std::optional<json_object> parse(std::string_view text, std::string& reason);

    bool has(const std::string& name) const { return m_members.contains(name); }
    // Null where there is no member of that name and kind.
    const std::string* text(const std::string& name) const;
    const bool* truth(const std::string& name) const;
    // Nothing where there is no number of that name.
    std::optional<double> number(const std::string& name) const;

private:
    nlohmann::json m_members = nlohmann::json::object();
};

}  // namespace pennywort::host
