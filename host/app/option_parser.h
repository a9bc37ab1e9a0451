// option_parser.h - the options of one command. The library that parses them takes six seconds to
// compile in each source that includes it, so only the sources behind this header do.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace pennywort::host {

// An option that a parser has: each of these says more of it.
class added_option {
public:
    explicit added_option(CLI::Option& option) : m_option(option) {}

    // What its value is called in the help.
    added_option& type_name(const char* name);
    added_option& required();
    // The help shows the value that its variable has now.
    added_option& shows_default();
    // It takes one value where it stands, also where its variable holds many: what follows is an
    // argument of its own.
    added_option& takes_one();
    // It has exactly one value.
    added_option& has_one_value();
    // The command line has only one of the two.
    added_option& excludes(const added_option& other);

private:
    CLI::Option& m_option;
};

// `names` are those of the option, such as "-o,--output", or one without dashes for an argument. A
// variable is written while the command line is parsed, and must outlive that. An optional one
// stays empty where the option is not given.
class option_parser {
public:
    explicit option_parser(CLI::App& parser) : m_parser(parser) {}

    added_option add_option(const char* names, std::string& value, const char* help);
    added_option add_option(const char* names, std::optional<std::string>& value, const char* help);
    added_option add_option(const char* names, std::vector<std::string>& values, const char* help);
    added_option add_flag(const char* names, bool& is_set, const char* help);
    added_option add_flag(const char* names, std::function<void()> given, const char* help);
    // What is neither an option nor one of the arguments that have been added, word by word;
    // `usage` stands for it in the help.
    void add_words(std::vector<std::string>& words, const char* usage);
    // Refuses those whose value is empty, as that of a variable which a script has not set: the
    // film would be another one than was asked for. Of all that have been added.
    void refuse_empty_values();

private:
    CLI::App& m_parser;
};

}  // namespace pennywort::host
