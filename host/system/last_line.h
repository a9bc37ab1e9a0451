// host/system/last_line.h - keeps the first and the last line of what a program says, and a number
// that it reports.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace pennywort::host {

class last_line {
public:
    // From now on lines such as "frame=12" are reports and no words; the last number of the one
    // that is called `name` is kept.
    void expect_reports(std::string name) { m_wanted = std::move(name); }

    // The bytes may be split anywhere. A line longer than k_max_last_line keeps its beginning.
    void add(std::string_view bytes);
    // The last line that is not empty, whether its end has come or not. One that breaks off where
    // its reason would be (" --") does not take the place of the one before it, which gives that.
    const std::string& text() const { return m_current.empty() ? m_last : m_current; }
    // The first one.
    const std::string& first() const { return m_first.empty() ? m_current : m_first; }
    // 0 where the program has reported, but no number of that name; nothing where it has not.
    const std::optional<std::uint64_t>& reported() const { return m_reported; }

private:
    void end_line();
    bool take_report();

    std::string m_current;
    std::string m_first;
    std::string m_last;
    std::string m_wanted;
    std::optional<std::uint64_t> m_reported;
};

}  // namespace pennywort::host
