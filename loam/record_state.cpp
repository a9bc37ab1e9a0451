// loam/record_state.cpp - see the header for the contract.
#include "loam/record_state.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "loam/ascii.h"
#include "loam/number_text.h"

namespace loam {
namespace {

constexpr std::size_t k_indexed_from = 13;

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

record_key::record_key(std::uint64_t id) : m_view(m_id, k_id_size) {
    std::memcpy(m_id + 1, &id, sizeof id);
}

std::uint64_t record_key::id_of(std::string_view key) {
    std::uint64_t id = 0;
    if (key.size() == k_id_size && key[0] == '\0') std::memcpy(&id, key.data() + 1, sizeof id);
    return id;
}

std::size_t record_variables::position(std::string_view key) const {
    if (!m_index.empty()) {
        const auto found = m_index.find(key);
        return found == m_index.end() ? k_none : found->second;
    }
    for (std::size_t i = 0; i < m_variables.size(); ++i) {
        if (m_variables[i].key == key) return i;
    }
    return k_none;
}

const record_value* record_variables::find(std::string_view key) const {
    const std::size_t at = position(key);
    return at == k_none ? nullptr : &m_variables[at].value;
}

void record_variables::reserve(std::size_t count) {
    if (count <= m_variables.capacity()) return;
    // Doubled: records are filled one variable at a time.
    m_variables.reserve(std::max(count, 2 * m_variables.capacity()));
}

void record_variables::set(record_variable variable) {
    const std::size_t at = position(variable.key);
    put(at, std::move(variable));
}

void record_variables::set_at(const place& known, record_variable variable) {
    const std::size_t at = known.changes == m_changes ? known.at : position(variable.key);
    put(at, std::move(variable));
}

void record_variables::put(std::size_t at, record_variable variable) {
    if (at != k_none) {
        m_variables[at].value = std::move(variable.value);
        return;
    }
    append(std::move(variable));
}

void record_variables::append(record_variable variable) {
    m_variables.push_back(std::move(variable));
    ++m_changes;
    index_last();
}

void record_variables::remove(std::string_view key) {
    const std::size_t gone = position(key);
    if (gone == k_none) return;
    ++m_changes;
    if (m_variables.size() <= k_indexed_from) m_index.clear();
    if (const auto found = m_index.find(key); found != m_index.end()) m_index.erase(found);
    for (auto& [name, at] : m_index) {
        if (at > gone) --at;
    }
    m_variables.erase(m_variables.begin() + static_cast<std::ptrdiff_t>(gone));
}

void record_variables::clear() {
    ++m_changes;
    m_variables.clear();
    m_index.clear();
}

void record_variables::swap(record_variables& other) noexcept {
    ++m_changes;
    ++other.m_changes;
    m_variables.swap(other.m_variables);
    m_index.swap(other.m_index);
}

const record_variable* record_variables::at(std::size_t index) const {
    return index < m_variables.size() ? &m_variables[index] : nullptr;
}

// Without memory for the index the variables are found by a look through all of them. An index
// that knows only some would hide the others.
void record_variables::index_last() {
    if (m_variables.size() < k_indexed_from) return;
    try {
        if (m_index.empty()) {
            m_index = made_index();
        } else {
            m_index.emplace(m_variables.back().key, m_variables.size() - 1);
        }
    } catch (const std::bad_alloc&) {
        m_index.clear();
    }
}

record_variables::positions record_variables::made_index() const {
    positions made;
    for (std::size_t i = 0; i < m_variables.size(); ++i) made.emplace(m_variables[i].key, i);
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
