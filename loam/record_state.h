// loam/record_state.h - what is inside a zRecord: its variables in order, and their index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

#include "loam/record.h"
#include "loam/record_array.h"

namespace loam {

struct record_bytes {
    std::string bytes;
};

struct record_value {
    std::variant<std::string, record_bytes, std::int32_t, std::int64_t, bool, double> held;
};

// What a variable is addressed by: a name, which must outlive the key, or an identifier. It takes
// no memory: a lookup must not fail.
class record_key {
public:
    record_key(std::string_view name) : m_name(name) {}
    record_key(const char* name) : m_name(name) {}
    explicit record_key(std::uint64_t id) : m_id(id) {}

    // Empty for an identifier.
    std::string_view name() const { return m_name; }
    // 0 for a name.
    std::uint64_t id() const { return m_id; }
    bool is_name() const { return m_name.data() != nullptr; }
    bool operator==(const record_key& other) const {
        return m_id == other.m_id && is_name() == other.is_name() && m_name == other.m_name;
    }

private:
    std::string_view m_name;
    std::uint64_t m_id = 0;
};

// A key that keeps its name, where moving it leaves the name in its place. No larger than it has to
// be: trees have many, and nearly all are identifiers.
class record_name {
public:
    explicit record_name(const record_key& key);
    record_name(const record_name& other) : record_name(other.key()) {}
    record_name(record_name&& other) noexcept { swap(other); }
    record_name& operator=(record_name other) noexcept {
        swap(other);
        return *this;
    }
    ~record_name() {
        if (is_name()) delete[] m_name;
    }

    record_key key() const {
        return is_name() ? record_key(std::string_view(m_name, m_length)) : record_key(m_id);
    }
    // "" for an identifier.
    const char* c_str() const { return is_name() ? m_name : ""; }
    bool is(std::uint64_t id) const { return !is_name() && m_id == id; }

private:
    static constexpr std::size_t k_is_id = static_cast<std::size_t>(-1);

    bool is_name() const { return m_length != k_is_id; }
    void swap(record_name& other) noexcept {
        std::swap(m_id, other.m_id);
        std::swap(m_length, other.m_length);
    }

    union {
        std::uint64_t m_id = 0;
        char* m_name;  // with a NUL behind
    };
    std::size_t m_length = k_is_id;
};

struct record_variable {
    record_variable(const record_key& name, record_value what)
        : key(name), value(std::move(what)) {}
    record_variable(const record_key& name, std::string_view text)
        : key(name), value{std::string(text)} {}

    record_name key;
    record_value value;
};

// A failed allocation leaves everything as it was.
class record_variables {
public:
    record_variables() = default;
    record_variables(const record_variables& other);
    record_variables& operator=(const record_variables&) = delete;

    const record_value* find(const record_key& key) const;
    const record_value* find(std::uint64_t id) const {
        if (m_index != nullptr) return find(record_key(id));
        for (const record_variable& each : m_variables) {
            if (each.key.is(id)) return &each.value;
        }
        return nullptr;
    }
    // Room for so many variables: up to that number set() does not fail.
    void reserve(std::size_t count) { m_variables.reserve(count); }
    // Memory for so many that lasts as long as the record, which has none yet.
    void borrow(void* memory, std::size_t count) { m_variables.borrow(memory, count); }
    void set(record_variable variable);
    // The same for a key that is known not to be there.
    void append(record_variable variable) { append_made(std::move(variable)); }
    void append(const record_key& key, std::string_view text) { append_made(key, text); }
    // Where a key stands, or that it is absent, for as long as nothing is added or removed.
    struct place {
        std::size_t at;
        std::uint64_t changes;
        bool is_there() const { return at != k_none; }
    };
    place place_of(const record_key& key) const { return {position(key), m_changes}; }
    // As set(), without another look for the key if `known` still holds.
    void set_at(const place& known, record_variable variable);
    void remove(const record_key& key);
    void clear();
    void swap(record_variables& other) noexcept;
    std::size_t size() const { return m_variables.size(); }
    const record_variable* begin() const { return m_variables.begin(); }
    const record_variable* end() const { return m_variables.end(); }
    const record_variable* at(std::size_t index) const {
        return index < m_variables.size() ? &m_variables[index] : nullptr;
    }
    // Leaves an empty variable in its place; for a list that is about to end.
    record_variable take(std::size_t index) { return std::move(m_variables[index]); }

private:
    static constexpr std::size_t k_none = static_cast<std::size_t>(-1);
    static constexpr std::size_t k_indexed_from = 13;

    struct key_hash {
        std::size_t operator()(const record_key& key) const {
            return key.is_name() ? std::hash<std::string_view>()(key.name())
                                 : std::hash<std::uint64_t>()(key.id());
        }
    };

    // The names are those of the variables.
    using positions = std::unordered_map<record_key, std::size_t, key_hash>;

    template <typename... made>
    void append_made(made&&... what) {
        m_variables.emplace_back(std::forward<made>(what)...);
        ++m_changes;
        if (m_variables.size() >= k_indexed_from) index_last();
    }
    std::size_t position(const record_key& key) const;
    void put(std::size_t at, record_variable variable);
    void index_last();
    std::unique_ptr<positions> made_index() const;

    record_array<record_variable> m_variables;
    std::uint64_t m_changes = 0;
    // Null up to a dozen variables, since a look through so few costs less than a hash; and where
    // there was no memory for it.
    std::unique_ptr<positions> m_index;
};

struct record_state {
    record_variables variables;
    record_array<zRecord*> children;
    zRecord* parent = nullptr;
};

// The inside of a record, for code of this library that fills or reads many. Nobody is told of what
// changes, so only records that are known to be plain zRecords may be changed this way.
struct record_access {
    static record_state& state_of(zRecord& record) {
        return *std::launder(reinterpret_cast<record_state*>(record.m_state));
    }
    static const record_state& state_of(const zRecord& record) {
        return *std::launder(reinterpret_cast<const record_state*>(record.m_state));
    }
};

// The conversions that zRecord's getters promise; nothing where there is none.
std::optional<std::int64_t> as_integer(const record_value& value);
std::optional<double> as_double(const record_value& value);
std::optional<bool> as_bool(const record_value& value);
// A number or bool as text; nothing for a text, which needs no conversion, and for bytes.
std::optional<std::string> number_as_text(const record_value& value);

}  // namespace loam
