// loam/record_state.h - what is inside a zRecord: its variables in order, and their index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

class zRecord;

namespace loam {

struct record_bytes {
    std::string bytes;
};

struct record_value {
    std::variant<std::string, record_bytes, std::int32_t, std::int64_t, bool, double> held;
};

// The name of a variable; for one with an identifier a NUL and the identifier's 8 bytes. A name
// comes from a NUL-terminated text, so the two cannot meet, and such a key reads as "". It takes no
// memory: a lookup must not fail. A name must outlive it.
class record_key {
public:
    explicit record_key(const char* name) : m_view(name) {}
    explicit record_key(std::uint64_t id);
    record_key(const record_key&) = delete;
    record_key& operator=(const record_key&) = delete;

    std::string_view view() const { return m_view; }
    // 0 for a name.
    static std::uint64_t id_of(std::string_view key);

private:
    static constexpr std::size_t k_id_size = 1 + sizeof(std::uint64_t);

    char m_id[k_id_size] = {};
    std::string_view m_view;
};

struct record_variable {
    std::string key;
    record_value value;
};

// A failed allocation leaves everything as it was.
class record_variables {
public:
    const record_value* find(std::string_view key) const;
    // Room for so many variables: up to that number set() does not fail.
    void reserve(std::size_t count);
    void set(record_variable variable);
    // The same for a key that is known not to be there.
    void append(record_variable variable);
    // Where a key stands, or that it is absent, for as long as nothing is added or removed.
    struct place {
        std::size_t at;
        std::uint64_t changes;
        bool is_there() const { return at != k_none; }
    };
    place place_of(std::string_view key) const { return {position(key), m_changes}; }
    // As set(), without another look for the key if `known` still holds.
    void set_at(const place& known, record_variable variable);
    void remove(std::string_view key);
    void clear();
    void swap(record_variables& other) noexcept;
    std::size_t size() const { return m_variables.size(); }
    const record_variable* at(std::size_t index) const;
    // Leaves an empty variable in its place; for a list that is about to end.
    record_variable take(std::size_t index) { return std::move(m_variables[index]); }

private:
    static constexpr std::size_t k_none = static_cast<std::size_t>(-1);

    struct key_hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const {
            return std::hash<std::string_view>()(key);
        }
    };

    using positions = std::unordered_map<std::string, std::size_t, key_hash, std::equal_to<>>;

    std::size_t position(std::string_view key) const;
    void put(std::size_t at, record_variable variable);
    void index_last();
    positions made_index() const;

    std::vector<record_variable> m_variables;
    std::uint64_t m_changes = 0;
    // Empty up to a dozen variables, since a look through so few costs less than a hash; and where
    // there was no memory for it.
    positions m_index;
};

struct record_state {
    record_variables variables;
    std::vector<zRecord*> children;
    zRecord* parent = nullptr;
};

// The inside of a record, for code of this library that fills or reads many. Nobody is told of what
// changes, so only records that are known to be plain zRecords may be changed this way.
struct record_access {
    static record_state& state_of(zRecord& record);
    static const record_state& state_of(const zRecord& record);
};

// The conversions that zRecord's getters promise; nothing where there is none.
std::optional<std::int64_t> as_integer(const record_value& value);
std::optional<double> as_double(const record_value& value);
std::optional<bool> as_bool(const record_value& value);
// A number or bool as text; nothing for a text, which needs no conversion, and for bytes.
std::optional<std::string> number_as_text(const record_value& value);

}  // namespace loam
