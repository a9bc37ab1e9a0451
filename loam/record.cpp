// loam/record.cpp - see the header for the contract.
#include "loam/record.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "loam/record_block.h"
#include "loam/record_state.h"
#include "loam/string.h"

using loam::record_block;
using loam::record_bytes;
using loam::record_key;
using loam::record_state;
using loam::record_value;
using loam::record_variable;

namespace {

// In front of a record with memory of its own.
constexpr std::size_t k_front = alignof(std::max_align_t);
static_assert(k_front >= sizeof(record_block*));

// The place of a record in memory that is its own.
void* behind_mark(void* memory) {
    void* const record = static_cast<char*>(memory) + k_front;
    record_block::owner_of(record) = nullptr;
    return record;
}

record_state& state_of(zRecord& record) { return loam::record_access::state_of(record); }

const record_state& state_of(const zRecord& record) {
    return loam::record_access::state_of(record);
}

template <typename converted, typename conversion>
std::optional<converted> read(const record_state& state, const record_key& key,
                              conversion convert) {
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

bool read_bool(const record_state& state, const record_key& key, bool otherwise) {
    return read<bool>(state, key, loam::as_bool).value_or(otherwise);
}

std::int64_t read_int64(const record_state& state, const record_key& key, std::int64_t otherwise) {
    return read<std::int64_t>(state, key, loam::as_integer).value_or(otherwise);
}

std::int32_t read_int32(const record_state& state, const record_key& key, std::int32_t otherwise) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int64_t value = read_int64(state, key, otherwise);
    const bool fits = value >= limits::min() && value <= limits::max();
    return fits ? static_cast<std::int32_t>(value) : otherwise;
}

double read_double(const record_state& state, const record_key& key, double otherwise) {
    return read<double>(state, key, loam::as_double).value_or(otherwise);
}

const std::string* find_text(const record_state& state, const record_key& key) {
    const record_value* value = state.variables.find(key);
    return value == nullptr ? nullptr : std::get_if<std::string>(&value->held);
}

std::string read_string(const record_state& state, const record_key& key,
                        const std::string& otherwise) {
    if (const std::string* text = find_text(state, key)) return *text;
    return read<std::string>(state, key, loam::number_as_text).value_or(otherwise);
}

const char* read_c_string(const record_state& state, const record_key& key, const char* otherwise,
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

const char* read_bytes(const record_state& state, const record_key& key, std::uint32_t* length) {
    const record_value* value = state.variables.find(key);
    if (value == nullptr) return with_length(nullptr, length);
    if (const auto* bytes = std::get_if<record_bytes>(&value->held)) {
        return with_length(&bytes->bytes, length);
    }
    return with_length(std::get_if<std::string>(&value->held), length);
}

}  // namespace

zRecord::zRecord() {
    static_assert(sizeof(record_state) == sizeof m_state);
    static_assert(alignof(record_state) <= alignof(zRecord));
    new (m_state) record_state;
}

void* zRecord::operator new(std::size_t size) {
    return behind_mark(::operator new(k_front + size));
}

void* zRecord::operator new(std::size_t size, const std::nothrow_t& none) noexcept {
    void* const memory = ::operator new(k_front + size, none);
    return memory == nullptr ? nullptr : behind_mark(memory);
}

void zRecord::operator delete(void* record, const std::nothrow_t&) noexcept {
    zRecord::operator delete(record);
}

void zRecord::operator delete(void* record) noexcept {
    if (record == nullptr) return;
    record_block* const block = record_block::owner_of(record);
    if (block != nullptr) {
        block->release(record);
    } else {
        ::operator delete(static_cast<char*>(record) - k_front);
    }
}

zRecord::zRecord(const zRecord& other) : zRecord() {
    // A list of work and no recursion: a tree may be deeper than the stack.
    std::vector<std::pair<const zRecord*, zRecord*>> pending{{&other, this}};
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        loam::record_variables variables(state_of(*from).variables);
        state_of(*to).variables.swap(variables);
        state_of(*to).children.reserve(state_of(*from).children.size());
        for (const zRecord* child : state_of(*from).children) {
            auto copy = std::make_unique<zRecord>();
            state_of(*copy).parent = to;
            pending.emplace_back(child, copy.get());
            state_of(*to).children.emplace_back(copy.release());
        }
    }
}

zRecord& zRecord::operator=(const zRecord& other) {
    if (this == &other) return *this;
    // Copied first, and room made: `other` may be a part of this tree, or this a part of it, and
    // without memory everything stays as it was.
    zRecord copy(other);
    state_of(*this).variables.reserve(copy.VariableCount());
    MakeEmpty();
    take_variables(copy);
    state_of(*this).children.swap(state_of(copy).children);
    for (zRecord* child : state_of(*this).children) state_of(*child).parent = this;
    return *this;
}

zRecord::~zRecord() {
    if (state_of(*this).parent != nullptr) {
        // A copy that cannot be made may not be among its siblings yet.
        state_of(*state_of(*this).parent).children.erase_value(this);
        state_of(*this).parent = nullptr;
    }
    delete_children();
    std::destroy_at(&state_of(*this));
}

// From the deepest upwards and without recursion, since a tree may be deeper than the stack; and
// without a list of work, since there may be no memory for one.
void zRecord::delete_children() {
    zRecord* at = this;
    while (at != this || !state_of(*this).children.empty()) {
        auto& below = state_of(*at).children;
        if (!below.empty()) {
            at = below.back();
            continue;
        }
        zRecord* const above = std::exchange(state_of(*at).parent, nullptr);
        state_of(*above).children.pop_back();
        delete at;
        at = above;
    }
}

// Each operation that takes a name comes a second time with an identifier.
// clang-format off
bool zRecord::AsBool(const char* name, bool otherwise) const {
    return name == nullptr ? otherwise : read_bool(state_of(*this), name, otherwise);
}
bool zRecord::AsBool(std::uint64_t id, bool otherwise) const {
    return read_bool(state_of(*this), record_key(id), otherwise);
}
std::int32_t zRecord::AsInt32(const char* name, std::int32_t otherwise) const {
    return name == nullptr ? otherwise : read_int32(state_of(*this), name, otherwise);
}
std::int32_t zRecord::AsInt32(std::uint64_t id, std::int32_t otherwise) const {
    return read_int32(state_of(*this), record_key(id), otherwise);
}
std::int64_t zRecord::AsInt64(const char* name, std::int64_t otherwise) const {
    return name == nullptr ? otherwise : read_int64(state_of(*this), name, otherwise);
}
std::int64_t zRecord::AsInt64(std::uint64_t id, std::int64_t otherwise) const {
    return read_int64(state_of(*this), record_key(id), otherwise);
}
double zRecord::AsDouble(const char* name, double otherwise) const {
    return name == nullptr ? otherwise : read_double(state_of(*this), name, otherwise);
}
double zRecord::AsDouble(std::uint64_t id, double otherwise) const {
    return read_double(state_of(*this), record_key(id), otherwise);
}
std::string zRecord::AsString(const char* name, const std::string& otherwise) const {
    return name == nullptr ? otherwise : read_string(state_of(*this), name, otherwise);
}
std::string zRecord::AsString(std::uint64_t id, const std::string& otherwise) const {
    return read_string(state_of(*this), record_key(id), otherwise);
}
const char* zRecord::AsCString(const char* name, const char* otherwise, char (*scratch)[64]) const {
    return name == nullptr ? otherwise : read_c_string(state_of(*this), name, otherwise, scratch);
}
const char* zRecord::AsCString(std::uint64_t id, const char* otherwise, char (*scratch)[64]) const {
    return read_c_string(state_of(*this), record_key(id), otherwise, scratch);
}
// clang-format on

const char* zRecord::AsText(const char* name, std::uint32_t* length) const {
    return with_length(name == nullptr ? nullptr : find_text(state_of(*this), name), length);
}

const char* zRecord::AsText(std::uint64_t id, std::uint32_t* length) const {
    return with_length(find_text(state_of(*this), record_key(id)), length);
}

const void* zRecord::AsBytes(const char* name, std::uint32_t* length) const {
    return name == nullptr ? with_length(nullptr, length)
                           : read_bytes(state_of(*this), name, length);
}

const void* zRecord::AsBytes(std::uint64_t id, std::uint32_t* length) const {
    return read_bytes(state_of(*this), record_key(id), length);
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
    return name != nullptr && state_of(*this).variables.find(name) != nullptr;
}

bool zRecord::Has(std::uint64_t id) const {
    return state_of(*this).variables.find(record_key(id)) != nullptr;
}

bool zRecord::Remove(const char* name) { return name != nullptr && remove(record_key(name)); }

bool zRecord::RemoveID(std::uint64_t id) { return remove(record_key(id)); }

std::uint32_t zRecord::VariableCount() const {
    return static_cast<std::uint32_t>(state_of(*this).variables.size());
}

const char* zRecord::VariableName(std::uint32_t index) const {
    const auto* variable = state_of(*this).variables.at(index);
    return variable == nullptr ? "" : variable->key.c_str();
}

std::uint64_t zRecord::VariableID(std::uint32_t index) const {
    const auto* variable = state_of(*this).variables.at(index);
    return variable == nullptr ? 0 : variable->key.key().id();
}

zStatus zRecord::AddChild(zRecord* child, std::int32_t position) {
    if (child == nullptr || child == this || position < 0) return -1;
    if (state_of(*child).parent != nullptr) return -1;
    // Only a record with children can be an ancestor; without this test building a deep chain from
    // its top would take the square of its depth.
    if (!state_of(*child).children.empty()) {
        for (const zRecord* above = this; above != nullptr; above = state_of(*above).parent) {
            if (above == child) return -1;
        }
    }
    auto& children = state_of(*this).children;
    const auto at = std::min(static_cast<std::size_t>(position), children.size());
    try {
        children.insert(at, child);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    state_of(*child).parent = this;
    return 0;
}

zRecord* zRecord::Child(std::uint32_t index) const {
    return index < state_of(*this).children.size() ? state_of(*this).children[index] : nullptr;
}

std::uint32_t zRecord::ChildCount() const {
    return static_cast<std::uint32_t>(state_of(*this).children.size());
}

zRecord* zRecord::TakeChild(std::uint32_t index) {
    zRecord* child = Child(index);
    if (child == nullptr) return nullptr;
    state_of(*this).children.erase(index);
    state_of(*child).parent = nullptr;
    return child;
}

zRecord* zRecord::Parent() const { return state_of(*this).parent; }

void zRecord::MakeEmpty() {
    for (std::size_t i = 0; i < state_of(*this).variables.size(); ++i) {
        variable_changing(state_of(*this).variables.at(i)->key.key().id(), true, true);
    }
    state_of(*this).variables.clear();
    delete_children();
}

void zRecord::variable_changing(std::uint64_t, bool, bool) {}

bool zRecord::set(const record_key& key, record_value value) {
    auto& variables = state_of(*this).variables;
    const auto place = variables.place_of(key);
    const bool exists = place.is_there();
    // All memory is taken first: a derived class must not hear of a change that then fails.
    record_variable made(key, std::move(value));
    if (!exists) variables.reserve(variables.size() + 1);
    variable_changing(key.id(), exists, false);
    // The derived class may have changed the record itself.
    variables.set_at(place, std::move(made));
    return true;
}

bool zRecord::remove(const record_key& key) {
    if (state_of(*this).variables.find(key) == nullptr) return false;
    variable_changing(key.id(), true, true);
    state_of(*this).variables.remove(key);
    return true;
}

void zRecord::take_variables(zRecord& other) {
    loam::record_variables taken;
    taken.swap(state_of(other).variables);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        variable_changing(taken.at(i)->key.key().id(), false, false);
        state_of(*this).variables.set(taken.take(i));
    }
}

zRecordIterator::zRecordIterator(zRecord& record) : m_record(record) {}

void zRecordIterator::Init() { m_index = 0; }

bool zRecordIterator::Done() const { return m_index >= m_record.ChildCount(); }

void zRecordIterator::Next() {
    if (!Done()) ++m_index;
}

zRecord* zRecordIterator::operator()() const { return m_record.Child(m_index); }
