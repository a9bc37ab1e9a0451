// option_parser.cpp - see the header for the contract.
#include "host/app/option_parser.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <utility>

namespace pennywort::host {

namespace {

// The library does not name words that are no option's.
class usage_with_words final : public CLI::Formatter {
public:
    explicit usage_with_words(std::string words) : m_words(std::move(words)) {}

    std::string make_usage(const CLI::App* parser, std::string name) const override {
        std::string usage = CLI::Formatter::make_usage(parser, std::move(name));
        return usage.insert(usage.find_last_not_of('\n') + 1, " " + m_words);
    }

private:
    const std::string m_words;
};

}  // namespace

added_option& added_option::type_name(const char* name) {
    m_option.type_name(name);
    return *this;
}

added_option& added_option::required() {
    m_option.required();
    return *this;
}

added_option& added_option::shows_default() {
    m_option.capture_default_str();
    return *this;
}

added_option& added_option::takes_one() {
    m_option.allow_extra_args(false);
    return *this;
}

added_option& added_option::has_one_value() {
    m_option.expected(1);
    return *this;
}

added_option& added_option::excludes(const added_option& other) {
    m_option.excludes(&other.m_option);
    return *this;
}

added_option option_parser::add_option(const char* names, std::string& value, const char* help) {
    return added_option(*m_parser.add_option(names, value, help));
}

added_option option_parser::add_option(const char* names, std::optional<std::string>& value,
                                       const char* help) {
    return added_option(*m_parser.add_option(names, value, help));
}

added_option option_parser::add_option(const char* names, std::vector<std::string>& values,
                                       const char* help) {
    return added_option(*m_parser.add_option(names, values, help));
}

added_option option_parser::add_flag(const char* names, bool& is_set, const char* help) {
    return added_option(*m_parser.add_flag(names, is_set, help));
}

added_option option_parser::add_flag(const char* names, std::function<void()> given,
                                     const char* help) {
    return added_option(*m_parser.add_flag_callback(names, std::move(given), help));
}

void option_parser::add_words(std::vector<std::string>& words, const char* usage) {
    m_parser.allow_extras();
    m_parser.formatter(std::make_shared<usage_with_words>(usage));
    m_parser.final_callback([&words, &parser = m_parser] { words = parser.remaining(); });
}

void option_parser::refuse_empty_values() {
    const CLI::Validator has_value(
        [](std::string& value) { return std::string(value.empty() ? "its value is empty" : ""); },
        "");
    for (CLI::Option* const option : m_parser.get_options()) {
        const bool takes_value = option->get_items_expected_max() > 0;
        if (option->nonpositional() && takes_value) option->check(has_value);
    }
}

}  // namespace pennywort::host
