// parsed_render.h - what "render" makes of its arguments, and which of them are refused.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/app/command_line.h"
#include "host/render/render_command.h"

namespace pennywort::host {

// Nothing if it refuses them.
inline std::optional<render_options> render_of(const std::vector<std::string>& arguments) {
    const auto line = parse_command_line(arguments);
    const auto* const chosen = dynamic_cast<const render_command*>(line.chosen.get());
    EXPECT_NE(chosen, nullptr) << line.text;
    return chosen == nullptr ? std::nullopt : std::optional(chosen->options());
}

struct refused_arguments {
    const char* name;
    std::vector<std::string> arguments;
    const char* names;  // what the message has to name
};
inline void PrintTo(const refused_arguments& c, std::ostream* out) { *out << c.name; }

// In one line, which names what is wrong.
inline void expect_refused(const std::vector<std::string>& arguments, const std::string& names) {
    const auto line = parse_command_line(arguments);
    EXPECT_EQ(line.what, command_line::verdict::refuse);
    EXPECT_NE(line.text.find(names), std::string::npos) << line.text;
    EXPECT_EQ(line.text.find('\n'), std::string::npos) << line.text;
}

}  // namespace pennywort::host
