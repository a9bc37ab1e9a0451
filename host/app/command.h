// host/app/command.h - what the program knows of one of its commands. A command NAME lives in a
// folder host/NAME of its own, where NAME_command.h declares make_NAME_command(); the list of the
// commands stands in host/CMakeLists.txt, and nothing else names them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/system/console.h"

namespace pennywort::host {

class option_parser;

// Used in the order add_options, prepare, take_arguments, run; run once in a process.
class command {
public:
    virtual ~command() = default;

    virtual const char* name() const = 0;
    // A few words for the list of commands.
    virtual const char* summary() const = 0;
    // What stands below the options in the command's help: examples, and its exit statuses.
    virtual const char* footer() const = 0;

    // Looks at the words before the parser does, and may change them. Returns what is wrong, as
    // take_arguments.
    virtual std::string prepare(std::vector<std::string>& words) const;
    // Tells the parser the options. Their texts are stored here while it parses.
    virtual void add_options(option_parser& parser) = 0;
    // Makes sense of the texts that have been parsed, before anything else begins: reads the files
    // that they name and looks for the pages that are files. Returns what is wrong, in one line;
    // an empty text if nothing is.
    virtual std::string take_arguments() = 0;
    // Whether the user also wants to see traces.
    virtual bool is_verbose() const = 0;
    // Whether the user also wants to see what the browser says of itself.
    virtual bool hears_browser() const { return is_verbose(); }

    // Returns the exit status; what went wrong has been told in one line on the console by then.
    virtual int run(const console& out) = 0;
};

// Every command, in the order in which the help lists them.
std::vector<std::unique_ptr<command>> all_commands();

}  // namespace pennywort::host
