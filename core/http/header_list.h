// header_list.h - the headers of a message in their order. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pennywort::http {

// A header as it lies in its list, valid until the list changes.
struct header {
    std::string_view name;
    std::string_view value;
};

// Names are found whatever the case of their letters, keep the case that they came with, and may
// stand several times. All texts lie in one piece of memory, which clear() keeps, so that a list
// that is used again allocates nothing.
class header_list {
public:
    void add(std::string_view name, std::string_view value);
    // In place of all headers of that name, at the end of the list.
    void set(std::string_view name, std::string_view value);
    // Adds to the value of the last header.
    void extend_last(std::string_view more);
    // The number that was removed.
    std::size_t remove(std::string_view name);
    void clear();

    std::size_t size() const { return m_entries.size(); }
    bool is_empty() const { return m_entries.empty(); }
    header operator[](std::size_t index) const;

    // The value of the first header of that name; nothing without one.
    std::optional<std::string_view> find(std::string_view name) const;
    std::size_t count(std::string_view name) const;
    // All values of that name in their order with ", " between, as if they had come in one header.
    std::string joined(std::string_view name) const;
    // Whether `token` is an element of the comma-separated lists of that name, in any case.
    bool has_token(std::string_view name, std::string_view token) const;

private:
    struct entry {
        std::size_t name_begin;
        std::size_t name_size;
        std::size_t value_size;  // the value follows its name
    };

    bool is_named(const entry& one, std::string_view name) const;
    std::string_view name_of(const entry& one) const;
    std::string_view value_of(const entry& one) const;

    std::string m_text;
    std::vector<entry> m_entries;
};

// Takes the next element off a comma-separated list, without the blanks around it; empty elements
// are passed over. Empty at the end. A comma between quotation marks separates nothing.
std::string_view next_element(std::string_view& list);

}  // namespace pennywort::http
