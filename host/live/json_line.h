// host/live/json_line.h - builds one line of JSON for programs that start this one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::host {

class json_line {
public:
    json_line& add(std::string_view name, std::string_view text);
    json_line& add(std::string_view name, std::uint64_t number);
    // With `decimals` digits behind the point, whatever the locale; null if it is no number.
    json_line& add(std::string_view name, double number, int decimals);

    // The object, without a line end.
    std::string text() const { return m_members + "}"; }

private:
    void begin_member(std::string_view name);

    std::string m_members = "{";
};

// `text` between quotes. Bytes that are no valid UTF-8 become U+FFFD, so that the line stays JSON.
std::string json_quoted(std::string_view text);

}  // namespace pennywort::host
