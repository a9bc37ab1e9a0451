// loam/record.cpp - see the header for the contract.
#include "loam/record.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "loam/record_state.h"
#include "loam/string.h"

using loam::record_bytes;
using loam::record_key;
using loam::record_state;
using loam::record_value;
using loam::record_variable;

namespace {

template <typename converted, typename conversion>
std::optional<converted> read(const record_state& state, std::string_view key, conversion convert) {
    const record_value* value = state.variables.find(key);
    if (value == nullptr) return std::nullopt;
    return convert(*value);
}

std::string text_from(const char* text, std::uint32_t length) {
    if (text == nullptr) return {};
    return length == zString::k_to_nul ? std::string(text) : std::string(text, length);
}

std::string bytes_from(const void* bytes, std::uint32_t length) {
    if (bytes == nullptr) return {};
    return {static_cast<const char*>(bytes), length};
}

bool read_bool(const record_state& state, std::string_view key, bool otherwise) {
    return read<bool>(state, key, loam::as_bool).value_or(otherwise);
}

std::int64_t read_int64(const record_state& state, std::string_view key, std::int64_t otherwise) {
    return read<std::int64_t>(state, key, loam::as_integer).value_or(otherwise);
}

std::int32_t read_int32(const record_state& state, std::string_view key, std::int32_t otherwise) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int64_t value = read_int64(state, key, otherwise);
    const bool fits = value >= limits::min() && value <= limits::max();
    return fits ? static_cast<std::int32_t>(value) : otherwise;
}

double read_double(const record_state& state, std::string_view key, double otherwise) {
    return read<double>(state, key, loam::as_double).value_or(otherwise);
}

const std::string* find_text(const record_state& state, std::string_view key) {
    const record_value* value = state.variables.find(key);
    return value == nullptr ? nullptr : std::get_if<std::string>(&value->held);
}

std::string read_string(const record_state& state, std::string_view key,
                        const std::string& otherwise) {
    if (const std::string* text = find_text(state, key)) return *text;
    return read<std::string>(state, key, loam::number_as_text).value_or(otherwise);
}

const char* read_c_string(const record_state& state, std::string_view key, const char* otherwise,
                          char (*scratch)[64]) {
    if (const std::string* text = find_text(state, key)) return text->c_str();
    const auto number = read<std::string>(state, key, loam::number_as_text);
    if (!number || scratch == nullptr || number->size() >= sizeof *scratch) return otherwise;
    std::memcpy(*scratch, number->c_str(), number->size() + 1);
    return *scratch;
}

const char* with_length(const std::string* bytes, std::uint32_t* length) {
    if (length != nullptr) {
        *length = bytes == nullptr ? 0 : static_cast<std::uint32_t>(bytes->size());
    }
    return bytes == nullptr ? nullptr : bytes->c_str();
}

const char* read_bytes(const record_state& state, std::string_view key, std::uint32_t* length) {
    const record_value* value = state.variables.find(key);
    if (value == nullptr) return with_length(nullptr, length);
    if (const auto* bytes = std::get_if<record_bytes>(&value->held)) {
        return with_length(&bytes->bytes, length);
    }
    return with_length(std::get_if<std::string>(&value->held), length);
}

}  // namespace

record_state& loam::record_access::state_of(zRecord& record) { return *record.m_state; }

const record_state& loam::record_access::state_of(const zRecord& record) { return *record.m_state; }

zRecord::zRecord() : m_state(std::make_unique<record_state>()) {}

zRecord::zRecord(const zRecord& other) : zRecord() {
    // A list of work and no recursion: a tree may be deeper than the stack.
    std::vector<std::pair<const zRecord*, zRecord*>> pending{{&other, this}};
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        to->m_state->variables = from->m_state->variables;
        to->m_state->children.reserve(from->m_state->children.size());
        for (const zRecord* child : from->m_state->children) {
            auto copy = std::make_unique<zRecord>();
            copy->m_state->parent = to;
            pending.emplace_back(child, copy.get());
            to->m_state->children.push_back(copy.release());
        }
    }
}

zRecord& zRecord::operator=(const zRecord& other) {
    if (this == &other) return *this;
    // Copied first, and room made: `other` may be a part of this tree, or this a part of it, and
    // without memory everything stays as it was.
    zRecord copy(other);
    m_state->variables.reserve(copy.VariableCount());
    MakeEmpty();
    take_variables(copy);
    m_state->children.swap(copy.m_state->children);
    for (zRecord* child : m_state->children) child->m_state->parent = this;
    return *this;
}

zRecord::~zRecord() {
    if (m_state->parent != nullptr) {
        std::erase(m_state->parent->m_state->children, this);
        m_state->parent = nullptr;
    }
    delete_children();
}

// From the deepest upwards and without recursion, since a tree may be deeper than the stack; and
// without a list of work, since there may be no memory for one.
void zRecord::delete_children() {
    zRecord* at = this;
    while (at != this || !m_state->children.empty()) {
        auto& below = at->m_state->children;
        if (!below.empty()) {
            at = below.back();
            continue;
        }
        zRecord* const above = std::exchange(at->m_state->parent, nullptr);
        above->m_state->children.pop_back();
        delete at;
        at = above;
    }
}

// Each operation that takes a name comes a second time with an identifier.
// clang-format off
bool zRecord::AsBool(const char* name, bool otherwise) const {
    return name == nullptr ? otherwise : read_bool(*m_state, name, otherwise);
}
bool zRecord::AsBool(std::uint64_t id, bool otherwise) const {
    return read_bool(*m_state, record_key(id).view(), otherwise);
}
std::int32_t zRecord::AsInt32(const char* name, std::int32_t otherwise) const {
    return name == nullptr ? otherwise : read_int32(*m_state, name, otherwise);
}
std::int32_t zRecord::AsInt32(std::uint64_t id, std::int32_t otherwise) const {
    return read_int32(*m_state, record_key(id).view(), otherwise);
}
std::int64_t zRecord::AsInt64(const char* name, std::int64_t otherwise) const {
    return name == nullptr ? otherwise : read_int64(*m_state, name, otherwise);
}
std::int64_t zRecord::AsInt64(std::uint64_t id, std::int64_t otherwise) const {
    return read_int64(*m_state, record_key(id).view(), otherwise);
}
double zRecord::AsDouble(const char* name, double otherwise) const {
    return name == nullptr ? otherwise : read_double(*m_state, name, otherwise);
}
double zRecord::AsDouble(std::uint64_t id, double otherwise) const {
    return read_double(*m_state, record_key(id).view(), otherwise);
}
std::string zRecord::AsString(const char* name, const std::string& otherwise) const {
    return name == nullptr ? otherwise : read_string(*m_state, name, otherwise);
}
std::string zRecord::AsString(std::uint64_t id, const std::string& otherwise) const {
    return read_string(*m_state, record_key(id).view(), otherwise);
}
const char* zRecord::AsCString(const char* name, const char* otherwise, char (*scratch)[64]) const {
    return name == nullptr ? otherwise : read_c_string(*m_state, name, otherwise, scratch);
}
const char* zRecord::AsCString(std::uint64_t id, const char* otherwise, char (*scratch)[64]) const {
    return read_c_string(*m_state, record_key(id).view(), otherwise, scratch);
}
// clang-format on

const char* zRecord::AsText(const char* name, std::uint32_t* length) const {
    return with_length(name == nullptr ? nullptr : find_text(*m_state, name), length);
}

const char* zRecord::AsText(std::uint64_t id, std::uint32_t* length) const {
    return with_length(find_text(*m_state, record_key(id).view()), length);
}

const void* zRecord::AsBytes(const char* name, std::uint32_t* length) const {
    return name == nullptr ? with_length(nullptr, length) : read_bytes(*m_state, name, length);
}

const void* zRecord::AsBytes(std::uint64_t id, std::uint32_t* length) const {
    return read_bytes(*m_state, record_key(id).view(), length);
}

bool zRecord::SetCString(const char* name, const char* value, char flag) {
    return SetText(name, value, zString::k_to_nul, flag);
}

bool zRecord::SetCString(std::uint64_t id, const char* value, char flag) {
    return SetText(id, value, zString::k_to_nul, flag);
}

bool zRecord::SetString(const char* name, const std::string& value) {
    return name != nullptr && set(record_key(name), {value});
}

bool zRecord::SetString(std::uint64_t id, const std::string& value) {
    return set(record_key(id), {value});
}

bool zRecord::SetText(const char* name, const char* value, std::uint32_t length, char) {
    return name != nullptr && set(record_key(name), {text_from(value, length)});
}

bool zRecord::SetText(std::uint64_t id, const char* value, std::uint32_t length, char) {
    return set(record_key(id), {text_from(value, length)});
}

bool zRecord::SetBytes(const char* name, const void* value, std::uint32_t length, char) {
    return name != nullptr && set(record_key(name), {record_bytes{bytes_from(value, length)}});
}

bool zRecord::SetBytes(std::uint64_t id, const void* value, std::uint32_t length, char) {
    return set(record_key(id), {record_bytes{bytes_from(value, length)}});
}

bool zRecord::SetInt32(const char* name, std::int32_t value, char) {
    return name != nullptr && set(record_key(name), {value});
}

bool zRecord::SetInt32(std::uint64_t id, std::int32_t value, char) {
    return set(record_key(id), {value});
}

bool zRecord::SetInt64(const char* name, std::int64_t value, char) {
    return name != nullptr && set(record_key(name), {value});
}

bool zRecord::SetInt64(std::uint64_t id, std::int64_t value, char) {
    return set(record_key(id), {value});
}

bool zRecord::SetBool(const char* name, bool value, char) {
    return name != nullptr && set(record_key(name), {value});
}

bool zRecord::SetBool(std::uint64_t id, bool value, char) { return set(record_key(id), {value}); }

bool zRecord::SetDouble(const char* name, double value, char) {
    return name != nullptr && set(record_key(name), {value});
}

bool zRecord::SetDouble(std::uint64_t id, double value, char) {
    return set(record_key(id), {value});
}

bool zRecord::Has(const char* name) const {
    return name != nullptr && m_state->variables.find(name) != nullptr;
}

bool zRecord::Has(std::uint64_t id) const {
    return m_state->variables.find(record_key(id).view()) != nullptr;
}

bool zRecord::Remove(const char* name) { return name != nullptr && remove(record_key(name)); }

bool zRecord::RemoveID(std::uint64_t id) { return remove(record_key(id)); }

std::uint32_t zRecord::VariableCount() const {
    return static_cast<std::uint32_t>(m_state->variables.size());
}

const char* zRecord::VariableName(std::uint32_t index) const {
    const auto* variable = m_state->variables.at(index);
    return variable == nullptr ? "" : variable->key.c_str();
}

std::uint64_t zRecord::VariableID(std::uint32_t index) const {
    const auto* variable = m_state->variables.at(index);
    return variable == nullptr ? 0 : record_key::id_of(variable->key);
}

zStatus zRecord::AddChild(zRecord* child, std::int32_t position) {
    if (child == nullptr || child == this || position < 0) return -1;
    if (child->m_state->parent != nullptr) return -1;
    // Only a record with children can be an ancestor; without this test building a deep chain from
    // its top would take the square of its depth.
    if (!child->m_state->children.empty()) {
        for (const zRecord* above = this; above != nullptr; above = above->m_state->parent) {
            if (above == child) return -1;
        }
    }
    auto& children = m_state->children;
    const auto at = std::min(static_cast<std::size_t>(position), children.size());
    try {
        children.insert(children.begin() + static_cast<std::ptrdiff_t>(at), child);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    child->m_state->parent = this;
    return 0;
}

zRecord* zRecord::Child(std::uint32_t index) const {
    return index < m_state->children.size() ? m_state->children[index] : nullptr;
}

std::uint32_t zRecord::ChildCount() const {
    return static_cast<std::uint32_t>(m_state->children.size());
}

zRecord* zRecord::TakeChild(std::uint32_t index) {
    zRecord* child = Child(index);
    if (child == nullptr) return nullptr;
    m_state->children.erase(m_state->children.begin() + static_cast<std::ptrdiff_t>(index));
    child->m_state->parent = nullptr;
    return child;
}

zRecord* zRecord::Parent() const { return m_state->parent; }

void zRecord::MakeEmpty() {
    for (std::size_t i = 0; i < m_state->variables.size(); ++i) {
        variable_changing(record_key::id_of(m_state->variables.at(i)->key), true, true);
    }
    m_state->variables.clear();
    delete_children();
}

void zRecord::variable_changing(std::uint64_t, bool, bool) {}

bool zRecord::set(const record_key& key, record_value value) {
    auto& variables = m_state->variables;
    const std::uint64_t id = record_key::id_of(key.view());
    const auto place = variables.place_of(key.view());
    const bool exists = place.is_there();
    // All memory is taken first: a derived class must not hear of a change that then fails.
    record_variable made{std::string(key.view()), std::move(value)};
    if (!exists) variables.reserve(variables.size() + 1);
    variable_changing(id, exists, false);
    // The derived class may have changed the record itself.
    variables.set_at(place, std::move(made));
    return true;
}

bool zRecord::remove(const record_key& key) {
    if (m_state->variables.find(key.view()) == nullptr) return false;
    variable_changing(record_key::id_of(key.view()), true, true);
    m_state->variables.remove(key.view());
    return true;
}

void zRecord::take_variables(zRecord& other) {
    loam::record_variables taken;
    taken.swap(other.m_state->variables);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        variable_changing(record_key::id_of(taken.at(i)->key), false, false);
        m_state->variables.set(taken.take(i));
    }
}

zRecordIterator::zRecordIterator(zRecord& record) : m_record(record) {}

void zRecordIterator::Init() { m_index = 0; }

bool zRecordIterator::Done() const { return m_index >= m_record.ChildCount(); }

void zRecordIterator::Next() {
    if (!Done()) ++m_index;
}

zRecord* zRecordIterator::operator()() const { return m_record.Child(m_index); }
