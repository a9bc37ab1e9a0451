// host/system/last_line.h - keeps the last line of what a program says.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

class last_line {
public:
    // The bytes may be split anywhere. A line longer than k_max_last_line keeps its beginning.
    void add(std::string_view bytes);
    // The last line that is not empty, whether its end has come or not.
    const std::string& text() const { return m_current.empty() ? m_last : m_current; }

private:
    std::string m_current;
    std::string m_last;
};

}  // namespace pennywort::host
