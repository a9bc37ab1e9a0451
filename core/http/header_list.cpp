// core/http/header_list.cpp - see the header for the contract.
#include "core/http/header_list.h"

#include <algorithm>

#include "core/http/bytes.h"
#include "core/text/ascii.h"

namespace pennywort::http {
namespace {

std::size_t element_end(std::string_view list) {
    bool is_quoted = false;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (is_quoted && list[i] == '\\') {
            ++i;
        } else if (list[i] == '"') {
            is_quoted = !is_quoted;
        } else if (list[i] == ',' && !is_quoted) {
            return i;
        }
    }
    return list.size();
}

}  // namespace

std::string_view next_element(std::string_view& list) {
    std::string_view element;
    while (element.empty() && !list.empty()) {
        const std::size_t end = element_end(list);
        element = trimmed_value(list.substr(0, end));
        list.remove_prefix(std::min(list.size(), end + 1));
    }
    return element;
}

void header_list::add(std::string_view name, std::string_view value) {
    const std::size_t begin = m_text.size();
    m_entries.push_back({begin, name.size(), value.size()});
    m_text.append(name);
    m_text.append(value);
}

void header_list::set(std::string_view name, std::string_view value) {
    remove(name);
    add(name, value);
}

void header_list::extend_last(std::string_view more) {
    if (m_entries.empty()) return;
    m_text.append(more);
    m_entries.back().value_size += more.size();
}

// What the removed ones leave in the text goes when the list is cleared.
std::size_t header_list::remove(std::string_view name) {
    return std::erase_if(m_entries, [&](const entry& one) { return is_named(one, name); });
}

void header_list::clear() {
    m_entries.clear();
    m_text.clear();
}

header header_list::operator[](std::size_t index) const {
    const entry& one = m_entries[index];
    return {name_of(one), value_of(one)};
}

std::optional<std::string_view> header_list::find(std::string_view name) const {
    for (const entry& one : m_entries) {
        if (is_named(one, name)) return value_of(one);
    }
    return std::nullopt;
}

std::size_t header_list::count(std::string_view name) const {
    return static_cast<std::size_t>(std::count_if(
        m_entries.begin(), m_entries.end(), [&](const entry& one) { return is_named(one, name); }));
}

std::string header_list::joined(std::string_view name) const {
    std::string all;
    bool is_first = true;
    for (const entry& one : m_entries) {
        if (!is_named(one, name)) continue;
        if (!is_first) all += ", ";
        all += value_of(one);
        is_first = false;
    }
    return all;
}

bool header_list::has_token(std::string_view name, std::string_view token) const {
    for (const entry& one : m_entries) {
        if (!is_named(one, name)) continue;
        std::string_view list = value_of(one);
        for (auto element = next_element(list); !element.empty(); element = next_element(list)) {
            if (text::equal_ignoring_case(element, token)) return true;
        }
    }
    return false;
}

bool header_list::is_named(const entry& one, std::string_view name) const {
    return one.name_size == name.size() && text::equal_ignoring_case(name_of(one), name);
}

std::string_view header_list::name_of(const entry& one) const {
    return std::string_view(m_text).substr(one.name_begin, one.name_size);
}

std::string_view header_list::value_of(const entry& one) const {
    return std::string_view(m_text).substr(one.name_begin + one.name_size, one.value_size);
}

}  // namespace pennywort::http
