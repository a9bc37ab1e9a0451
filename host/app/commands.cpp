// host/app/commands.cpp - the list of the commands, as the build has put it together.
#include <utility>

#include "host/app/command.h"
#include "host_commands.h"

namespace pennywort::host {

std::vector<std::unique_ptr<command>> all_commands() {
    std::vector<std::unique_ptr<command>> commands;
    for (const auto make : k_command_makers) commands.push_back(make());
    return commands;
}

}  // namespace pennywort::host
