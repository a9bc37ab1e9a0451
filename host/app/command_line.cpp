// host/app/command_line.cpp - see the header for the contract.
#include "host/app/command_line.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <utility>

#include "host/app/option_hint.h"
#include "host/app/option_parser.h"
#include "host/app/terminal_text.h"

namespace pennywort::host {

namespace {

constexpr const char* k_version = "pennywort " PENNYWORT_VERSION;

using commands = std::vector<std::unique_ptr<command>>;

command_line refusal(const std::string& text) {
    command_line result;
    // One line, whatever a parser or the user's own text put into it.
    result.text = in_one_line(text);
    return result;
}

command_line saying(std::string text) {
    command_line result;
    result.what = command_line::verdict::say;
    result.text = std::move(text);
    return result;
}

command_line running(std::unique_ptr<command> chosen) {
    const std::string wrong = chosen->take_arguments();
    if (!wrong.empty()) return refusal(wrong);
    command_line result;
    result.what = command_line::verdict::run;
    result.chosen = std::move(chosen);
    return result;
}

// "render, live" between `before` and `after` each.
std::string joined(const commands& all, const char* before, const char* after) {
    std::string text;
    for (const auto& one : all) {
        text += (text.empty() ? "" : ", ") + std::string(before) + one->name() + after;
    }
    return text;
}

std::string with_hint(const std::string& text, const std::string& words_before_help) {
    return text + "; pennywort " + words_before_help + "--help lists what there is";
}

// The library's own for an option that stands there twice are of no use to anybody.
std::string words_of(const CLI::ParseError& wrong) {
    const std::string text = wrong.what();
    const auto at = text.find(": At Most 1 required");
    return at == text.npos ? text : text.substr(0, at) + " is given more than once";
}

std::vector<std::string> option_names(const CLI::App& of) {
    std::vector<std::string> names;
    for (const CLI::Option* option : of.get_options()) {
        const auto& own = option->get_lnames();
        names.insert(names.end(), own.begin(), own.end());
    }
    return names;
}

// An option is told without its value, which may be a secret.
std::string unknown_option_text(const std::string& word, const std::vector<std::string>& known) {
    const std::string option = word.substr(0, word.find('='));
    const std::string name = option.substr(std::min(option.find_first_not_of('-'), option.size()));
    const std::string meant = meant_option(name, known);
    return "there is no option " + option + (meant.empty() ? "" : "; perhaps --" + meant);
}

// The program with all of its commands, each with its options.
class parser {
public:
    explicit parser(const commands& all) {
        // A word like /page.html is a file on every system, and never an option.
        m_program.allow_windows_style_options(false);
        m_program.set_version_flag("--version", k_version);
        m_program.require_subcommand(1);
        m_program.footer("See also: " + joined(all, "pennywort ", " --help"));
        for (const auto& one : all) {
            CLI::App& added = *m_program.add_subcommand(one->name(), one->summary());
            option_parser options(added);
            one->add_options(options);
            added.footer(one->footer());
            m_parsers.push_back(&added);
        }
    }

    // Throws what the library throws for help, for the version and for what it cannot parse.
    void parse(const std::vector<std::string>& arguments) {
        std::vector<std::string> backwards(arguments.rbegin(), arguments.rend());
        m_program.parse(std::move(backwards));
    }
    // The number of the command that the arguments name; the number of all if they name none.
    std::size_t chosen() const {
        const auto is_parsed = [](const CLI::App* one) { return one->parsed(); };
        const auto found = std::find_if(m_parsers.begin(), m_parsers.end(), is_parsed);
        return static_cast<std::size_t>(found - m_parsers.begin());
    }
    // Where the arguments hold an option that there is not, what to say of the first one.
    std::string unknown_option() const {
        const CLI::App& asked = chosen() < m_parsers.size() ? *m_parsers[chosen()] : m_program;
        const auto left = asked.remaining();
        const auto is_option = [](const std::string& word) { return word.substr(0, 1) == "-"; };
        const auto found = std::find_if(left.begin(), left.end(), is_option);
        return found == left.end() ? std::string()
                                   : unknown_option_text(*found, option_names(asked));
    }
    std::string help() const {
        return chosen() < m_parsers.size() ? m_parsers[chosen()]->help("pennywort")
                                           : m_program.help();
    }

private:
    CLI::App m_program{"Web pages as live video, and network services.", "pennywort"};
    std::vector<CLI::App*> m_parsers;
};

// The command that the first word names; null without one.
const command* named(const commands& all, const std::vector<std::string>& words) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& one) { return words[0] == one->name(); });
    return found == all.end() ? nullptr : found->get();
}

}  // namespace

std::string command::prepare(std::vector<std::string>&) const { return {}; }

command_line parse_command_line(const std::vector<std::string>& arguments) {
    commands all = all_commands();
    if (arguments.empty()) {
        return refusal(with_hint("no command is named: " + joined(all, "", ""), "COMMAND "));
    }
    const bool has_command = arguments[0].substr(0, 1) != "-";
    const command* const wanted = named(all, arguments);
    if (has_command && wanted == nullptr) {
        return refusal("there is no command " + arguments[0] + ", only " + joined(all, "", ""));
    }
    std::vector<std::string> words = arguments;
    const std::string wrong_words = has_command ? wanted->prepare(words) : std::string();
    if (!wrong_words.empty()) return refusal(wrong_words);
    parser program(all);
    try {
        program.parse(words);
    } catch (const CLI::CallForHelp&) {
        return saying(program.help());
    } catch (const CLI::CallForVersion&) {
        return saying(std::string(k_version) + "\n");
    } catch (const CLI::ParseError& wrong) {
        const std::string unknown = program.unknown_option();
        return refusal(with_hint(unknown.empty() ? words_of(wrong) : unknown,
                                 has_command ? arguments[0] + " " : ""));
    }
    return running(std::move(all[program.chosen()]));
}

}  // namespace pennywort::host
