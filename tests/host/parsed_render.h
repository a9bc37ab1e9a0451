// parsed_render.h - what "render" makes of its arguments.
#pragma once

#include <gtest/gtest.h>

#include <optional>
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

}  // namespace pennywort::host
