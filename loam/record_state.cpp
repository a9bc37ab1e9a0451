// loam/record_state.cpp - see the header for the contract.
#include "loam/record_state.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "loam/ascii.h"
#include "loam/number_text.h"

namespace loam {
namespace {

std::optional<std::int64_t> whole_part(double value) {
    // 2^63 is exact as a double, while the largest 64-bit integer is not.
    constexpr double k_limit = 9223372036854775808.0;
    if (!(value >= -k_limit && value < k_limit)) return std::nullopt;
    return static_cast<std::int64_t>(value);
}

std::optional<bool> text_as_bool(std::string_view text) {
    const std::string_view word = trimmed(text);
    if (equal_ignoring_case(word, "true")) return true;
    if (equal_ignoring_case(word, "false")) return false;
    const auto number = whole_int64(word);
    if (!number) return std::nullopt;
    return *number != 0;
}

}  // namespace

record_name::record_name(const record_key& key) {
    if (!key.is_name()) {
        m_id = key.id();
        return;
    }
    const std::string_view name = key.name();
    auto kept = std::make_unique_for_overwrite<char[]>(name.size() + 1);
    kept[name.copy(kept.get(), name.size())] = '\0';
    m_name = kept.release();
    m_length = name.size();
}

record_variables::record_variables(const record_variables& other) : m_variables(other.m_variables) {
    if (m_variables.size() >= k_indexed_from) index_last();
}

std::size_t record_variables::position(const record_key& key) const {
    if (m_index != nullptr) {
        const auto found = m_index->find(key);
        return found == m_index->end() ? k_none : found->second;
    }
    for (std::size_t i = 0; i < m_variables.size(); ++i) {
        if (m_variables[i].key.key() == key) return i;
    }
    return k_none;
}

const record_value* record_variables::find(const record_key& key) const {
    const std::size_t at = position(key);
    return at == k_none ? nullptr : &m_variables[at].value;
}

void record_variables::set(record_variable variable) {
    const std::size_t at = position(variable.key.key());
    put(at, std::move(variable));
}

void record_variables::set_at(const place& known, record_variable variable) {
    const std::size_t at = known.changes == m_changes ? known.at : position(variable.key.key());
    put(at, std::move(variable));
}

void record_variables::put(std::size_t at, record_variable variable) {
    if (at != k_none) {
        m_variables[at].value = std::move(variable.value);
        return;
    }
    append(std::move(variable));
}

void record_variables::remove(const record_key& key) {
    const std::size_t gone = position(key);
    if (gone == k_none) return;
    ++m_changes;
    if (m_variables.size() <= k_indexed_from) m_index.reset();
    if (m_index != nullptr) {
        m_index->erase(key);
        for (auto& [name, at] : *m_index) {
            if (at > gone) --at;
        }
    }
    m_variables.erase(gone);
}

void record_variables::clear() {
    ++m_changes;
    m_index.reset();
    m_variables.clear();
}

void record_variables::swap(record_variables& other) noexcept {
    ++m_changes;
    ++other.m_changes;
    m_variables.swap(other.m_variables);
    m_index.swap(other.m_index);
}

// Without memory for the index the variables are found by a look through all of them. An index
// that knows only some would hide the others.
void record_variables::index_last() {
    try {
        if (m_index == nullptr) {
            m_index = made_index();
        } else {
            m_index->emplace(m_variables.back().key.key(), m_variables.size() - 1);
        }
    } catch (const std::bad_alloc&) {
        m_index.reset();
    }
}

std::unique_ptr<record_variables::positions> record_variables::made_index() const {
    auto made = std::make_unique<positions>();
    for (std::size_t i = 0; i < m_variables.size(); ++i) {
        made->emplace(m_variables[i].key.key(), i);
    }
    return made;
}

std::optional<std::int64_t> as_integer(const record_value& value) {
    if (const auto* number = std::get_if<std::int32_t>(&value.held)) return *number;
    if (const auto* number = std::get_if<std::int64_t>(&value.held)) return *number;
    if (const auto* flag = std::get_if<bool>(&value.held)) return *flag ? 1 : 0;
    if (const auto* number = std::get_if<double>(&value.held)) return whole_part(*number);
    if (const auto* text = std::get_if<std::string>(&value.held)) return whole_int64(*text);
    return std::nullopt;
}

std::optional<double> as_double(const record_value& value) {
    if (const auto* number = std::get_if<double>(&value.held)) return *number;
    if (const auto* text = std::get_if<std::string>(&value.held)) return whole_double(*text);
    const auto number = as_integer(value);
    if (!number) return std::nullopt;
    return static_cast<double>(*number);
}

std::optional<bool> as_bool(const record_value& value) {
    if (const auto* text = std::get_if<std::string>(&value.held)) return text_as_bool(*text);
    if (const auto* number = std::get_if<double>(&value.held)) {
        return std::isnan(*number) ? std::nullopt : std::optional(*number != 0);
    }
    const auto number = as_integer(value);
    if (!number) return std::nullopt;
    return *number != 0;
}

std::optional<std::string> number_as_text(const record_value& value) {
    if (const auto* number = std::get_if<std::int32_t>(&value.held)) return fmt::to_string(*number);
    if (const auto* number = std::get_if<std::int64_t>(&value.held)) return fmt::to_string(*number);
    if (const auto* flag = std::get_if<bool>(&value.held)) return *flag ? "true" : "false";
    if (const auto* number = std::get_if<double>(&value.held)) return fmt::to_string(*number);
    return std::nullopt;
}

}  // namespace loam
