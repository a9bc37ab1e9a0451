// loam/xml_writer.cpp - the writing half of loam/xml.h.
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "loam/buffer_access.h"
#include "loam/out_of_memory.h"
#include "loam/record_state.h"
#include "loam/utf8.h"
#include "loam/xml.h"
#include "loam/xml_text.h"

using loam::record_access;
using loam::record_key;
using loam::record_state;
using loam::record_value;

namespace {

// The first `size` bytes and the last, which may overlap.
template <std::size_t size>
void copy_both_ends(char* to, const char* from, std::size_t count) {
    std::array<char, size> first;
    std::array<char, size> last;
    std::memcpy(first.data(), from, size);
    std::memcpy(last.data(), from + count - size, size);
    std::memcpy(to, first.data(), size);
    std::memcpy(to + count - size, last.data(), size);
}

// Copies without a call what is as short as most names and texts are.
void copy_bytes(char* to, const char* from, std::size_t count) {
    if (count > 16) {
        std::memcpy(to, from, count);
    } else if (count >= 8) {
        copy_both_ends<8>(to, from, count);
    } else if (count >= 4) {
        copy_both_ends<4>(to, from, count);
    } else if (count > 0) {
        to[0] = from[0];
        to[count / 2] = from[count / 2];
        to[count - 1] = from[count - 1];
    }
}

// Grows without filling what is about to be written, as a string would.
class text_sink {
public:
    void put(std::string_view text) {
        copy_bytes(room_for(text.size()), text.data(), text.size());
        m_size += text.size();
    }
    // The three, one behind the other.
    void put(std::string_view before, std::string_view text, std::string_view behind) {
        char* const at = room_for(before.size() + text.size() + behind.size());
        copy_bytes(at, before.data(), before.size());
        copy_bytes(at + before.size(), text.data(), text.size());
        copy_bytes(at + before.size() + text.size(), behind.data(), behind.size());
        m_size += before.size() + text.size() + behind.size();
    }
    void put(char c) {
        *room_for(1) = c;
        ++m_size;
    }
    std::string_view text() const { return {m_bytes.get(), m_size}; }
    void move_into(zBuffer& out) {
        loam::buffer_access::give(out, std::move(m_bytes), m_size, m_capacity);
        m_size = m_capacity = 0;
    }

private:
    char* room_for(std::size_t count) {
        if (count > m_capacity - m_size) grow(count);
        return m_bytes.get() + m_size;
    }
    void grow(std::size_t count) {
        constexpr std::size_t k_first = 1024;
        const std::size_t capacity = std::max({m_capacity * 2, m_size + count, k_first});
        auto moved = std::make_unique_for_overwrite<char[]>(capacity);
        if (m_size > 0) std::memcpy(moved.get(), m_bytes.get(), m_size);
        m_bytes = std::move(moved);
        m_capacity = capacity;
    }

    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

// What a byte of a text asks for. Tabs and line feeds would become spaces in an attribute, and a
// carriage return becomes a line feed anywhere: these are written by their numbers.
enum class care : unsigned char { none, attribute_only, always, character };

constexpr std::array<care, 256> cares() {
    std::array<care, 256> made{};
    for (std::size_t i = 0; i < 0x20; ++i) made[i] = care::character;
    for (std::size_t i = 0x80; i < 0x100; ++i) made[i] = care::character;
    made['\t'] = made['\n'] = made['"'] = care::attribute_only;
    made['\r'] = made['&'] = made['<'] = made['>'] = care::always;
    return made;
}
constexpr std::array<care, 256> k_cares = cares();

std::string_view reference_for(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\t':
            return "&#9;";
        case '\n':
            return "&#10;";
        default:
            return "&#13;";
    }
}

// Whether one of eight bytes at once may need care: a byte below 0x20 or beyond ASCII, and each
// of the four marks. Where it says no, none does.
bool may_need_care(const char* bytes) {
    constexpr std::uint64_t k_each = 0x0101010101010101;
    constexpr std::uint64_t k_high = 0x80 * k_each;
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes, sizeof eight);
    std::uint64_t found = (eight - 0x20 * k_each) | eight;
    for (const char mark : {'&', '<', '>', '"'}) {
        found |= (eight ^ static_cast<std::uint64_t>(mark) * k_each) - k_each;
    }
    return (found & k_high) != 0;
}

// Bytes at the front of `text` that can be written as they are. `least` is the lowest care that is
// taken.
std::size_t plain_bytes(std::string_view text, care least) {
    std::size_t count = 0;
    while (count < text.size()) {
        if (text.size() - count >= 8 && !may_need_care(text.data() + count)) {
            count += 8;
        } else if (k_cares[static_cast<unsigned char>(text[count])] < least) {
            ++count;
        } else {
            break;
        }
    }
    return count;
}

// The same, with the characters beyond ASCII that XML can hold.
std::size_t unescaped_bytes(std::string_view text, care least) {
    std::size_t count = 0;
    while (true) {
        count += plain_bytes(text.substr(count), least);
        if (count == text.size()) return count;
        const auto byte = static_cast<unsigned char>(text[count]);
        if (k_cares[byte] != care::character) return count;
        const loam::utf8_piece next = loam::first_character(text.substr(count));
        if (!next.is_valid || !loam::is_xml_character(next.point)) return count;
        count += next.bytes;
    }
}

zStatus put_escaped(text_sink& out, std::string_view text, care least) {
    while (true) {
        const std::size_t plain = unescaped_bytes(text, least);
        out.put(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) return 0;
        if (k_cares[static_cast<unsigned char>(text[0])] == care::character) {
            return zXML::k_bad_text;
        }
        out.put(reference_for(text[0]));
        text.remove_prefix(1);
    }
}

zStatus put_value(text_sink& out, const record_value& value, care least) {
    if (const auto* text = std::get_if<std::string>(&value.held)) {
        return put_escaped(out, *text, least);
    }
    const auto number = loam::number_as_text(value);
    if (!number) return zXML::k_bad_text;
    out.put(*number);
    return 0;
}

// Asks for the memory of a record and its first variables. A tree is larger than a processor's
// caches: without this, the walk would wait for each record.
void come_soon(const zRecord* record) {
    const auto* const bytes = reinterpret_cast<const char*>(record);
    for (const int line : {0, 64, 128}) __builtin_prefetch(bytes + line);
}

struct layout {
    bool is_short_empty;
    bool is_indented;
};

// Walks the tree with a list of what is open and no recursion: it may be deeper than the stack.
class tree_writer {
public:
    tree_writer(text_sink& out, layout how) : m_out(out), m_layout(how) {}

    zStatus write(const zRecord& root) {
        zStatus status = begin(root);
        while (status == 0 && !m_open.empty()) {
            open_element& inner = m_open.back();
            if (inner.next < inner.state->children.size()) {
                status = begin(take_child(inner));
            } else {
                end();
            }
        }
        return status;
    }

private:
    struct open_element {
        const record_state* state;
        std::string_view name;
        bool has_text;
        std::size_t next;
    };

    // The one behind it is fetched meanwhile.
    static const zRecord& take_child(open_element& inner) {
        const auto& children = inner.state->children;
        const zRecord& child = *children[inner.next++];
        if (inner.next < children.size()) come_soon(children[inner.next]);
        return child;
    }

    // What of an element's variables is what.
    struct content {
        const std::string* name = nullptr;
        const record_value* text = nullptr;
        bool has_attributes = false;
    };

    static content content_of(const record_state& state) {
        content found;
        for (const loam::record_variable& each : state.variables) {
            if (each.key.is(zXML::k_name)) {
                found.name = std::get_if<std::string>(&each.value.held);
            } else if (each.key.is(zXML::k_text)) {
                found.text = &each.value;
            } else {
                found.has_attributes = true;
            }
        }
        return found;
    }

    zStatus begin(const zRecord& record) {
        const record_state& state = record_access::state_of(record);
        if (!state.children.empty()) come_soon(state.children[0]);
        const content found = content_of(state);
        if (found.name == nullptr || !loam::is_xml_name(*found.name)) return zXML::k_bad_name;
        break_line(m_open.size());
        const bool is_empty =
            found.text == nullptr && state.children.empty() && m_layout.is_short_empty;
        const std::string_view behind = is_empty ? "/>" : ">";
        if (found.has_attributes) {
            m_out.put("<", *found.name, "");
            const zStatus status = put_attributes(state);
            if (status != 0) return status;
            m_out.put(behind);
        } else {
            m_out.put("<", *found.name, behind);
        }
        if (is_empty) return 0;
        m_open.push_back({&state, *found.name, found.text != nullptr, 0});
        return found.text == nullptr ? 0 : put_value(m_out, *found.text, care::always);
    }

    void end() {
        const open_element ended = m_open.back();
        m_open.pop_back();
        if (!ended.has_text && !ended.state->children.empty()) break_line(m_open.size());
        m_out.put("</", ended.name, ">");
    }

    zStatus put_attributes(const record_state& state) {
        for (const loam::record_variable& one : state.variables) {
            const record_key key = one.key.key();
            // A variable with another identifier than name and text means nothing here.
            if (key.id() != 0) continue;
            if (!loam::is_xml_name(key.name())) return zXML::k_bad_name;
            m_out.put(" ", key.name(), "=\"");
            const zStatus status = put_value(m_out, one.value, care::attribute_only);
            if (status != 0) return status;
            m_out.put('"');
        }
        return 0;
    }

    // White space beside a text would become a part of it.
    void break_line(std::size_t depth) {
        if (!m_layout.is_indented || m_out.text().empty()) return;
        for (const open_element& above : m_open) {
            if (above.has_text) return;
        }
        m_out.put('\n');
        for (; depth > 0; --depth) m_out.put("  ");
    }

    text_sink& m_out;
    layout m_layout;
    std::vector<open_element> m_open;
};

zStatus write_document(text_sink& text, const zRecord& in, std::uint32_t flags, bool is_indented) {
    if ((flags & zXML::k_with_declaration) != 0) {
        text.put("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
        if (!is_indented) text.put('\n');
    }
    const layout how{(flags & zXML::k_short_empty) != 0, is_indented};
    const zStatus status = tree_writer(text, how).write(in);
    if (status == 0) text.put('\n');
    return status;
}

zStatus put_into(zBuffer& out, text_sink& sink, bool is_replacing) {
    const std::string_view text = sink.text();
    const std::uint32_t before = is_replacing ? 0 : out.Length();
    constexpr std::uint64_t k_most = std::numeric_limits<std::uint32_t>::max();
    if (text.size() + before > k_most) return zXML::k_too_large;
    if (before == 0) {
        sink.move_into(out);
        return 0;
    }
    const auto size = static_cast<std::uint32_t>(text.size() + before);
    if (out.ResizeTo(size, before) != 0) return -1;
    std::memcpy(out.Data() + before, text.data(), text.size());
    return 0;
}

}  // namespace

zStatus zXML::RecordToBuffer(zBuffer* out, const zRecord& in, std::uint32_t flags, bool isIndented,
                             bool isReplacing) {
    if (out == nullptr) return -1;
    return loam::unless_out_of_memory([&] {
        text_sink text;
        const zStatus status = write_document(text, in, flags, isIndented);
        return status != 0 ? status : put_into(*out, text, isReplacing);
    });
}
