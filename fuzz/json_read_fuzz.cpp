// json_read_fuzz.cpp - the host program's reader of JSON: beside a plain reading in UTF-16, cut
// off, with more behind it, and given back what the program itself writes.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "host/live/json_line.h"
#include "host/live/json_read.h"
#include "loam/utf.h"

namespace {

using pennywort::host::json_line;
using pennywort::host::json_object;

// A name, and its value: a text, or a word (a number, true, false, null) as it stands there.
struct plain_member {
    std::string name;
    std::string value;
    bool is_text = false;
};

constexpr std::u16string_view k_blanks = u" \t\r\n";

std::size_t digits_at(std::string_view word, std::size_t at) {
    const std::size_t end = word.find_first_not_of("0123456789", at);
    return (end == std::string_view::npos ? word.size() : end) - at;
}

bool is_plain_number(std::string_view word) {
    std::size_t at = word.substr(0, 1) == "-" ? 1 : 0;
    const std::size_t whole = digits_at(word, at);
    if (whole == 0 || (whole > 1 && word[at] == '0')) return false;
    at += whole;
    if (at < word.size() && word[at] == '.') {
        const std::size_t fraction = digits_at(word, at + 1);
        if (fraction == 0) return false;
        at += 1 + fraction;
    }
    if (at < word.size() && (word[at] == 'e' || word[at] == 'E')) {
        ++at;
        if (at < word.size() && (word[at] == '+' || word[at] == '-')) ++at;
        const std::size_t exponent = digits_at(word, at);
        if (exponent == 0) return false;
        at += exponent;
    }
    if (at != word.size()) return false;
    const double value = std::strtod(std::string(word).c_str(), nullptr);
    // One that becomes nothing without being nothing does not fit either.
    const bool is_nothing =
        word.substr(0, word.find_first_of("eE")).find_first_of("123456789") == word.npos;
    return std::isfinite(value) && (value != 0 || is_nothing);
}

bool is_plain_word(std::string_view word) {
    return word == "true" || word == "false" || word == "null" || is_plain_number(word);
}

// What is wrong with a text is told by the whole of it, after every escape has become its unit.
bool is_plain_text(std::u16string_view units) {
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (unit == 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) return false;
        if (unit < 0xD800 || unit > 0xDBFF) continue;
        ++i;
        if (i == units.size() || units[i] < 0xDC00 || units[i] > 0xDFFF) return false;
    }
    return true;
}

class plain_reader {
public:
    explicit plain_reader(std::u16string_view text) : m_text(text) {}

    std::optional<std::vector<plain_member>> object() {
        std::vector<plain_member> members;
        if (!next_is(u'{')) return {};
        if (next_is(u'}')) return ends() ? std::optional(members) : std::nullopt;
        do {
            plain_member member;
            if (!next_is(u'"') || !text(member.name) || !next_is(u':')) return {};
            member.is_text = next_is(u'"');
            if (!(member.is_text ? text(member.value) : word(member.value))) return {};
            members.push_back(std::move(member));
        } while (next_is(u','));
        return next_is(u'}') && ends() ? std::optional(members) : std::nullopt;
    }

private:
    void skip_blanks() {
        while (m_at < m_text.size() && k_blanks.find(m_text[m_at]) != k_blanks.npos) ++m_at;
    }
    bool ends() {
        skip_blanks();
        return m_at == m_text.size();
    }
    bool next_is(char16_t unit) {
        if (ends() || m_text[m_at] != unit) return false;
        ++m_at;
        return true;
    }
    bool word(std::string& value) {
        skip_blanks();
        const std::size_t end = std::min(m_text.find_first_of(u",} \t\r\n", m_at), m_text.size());
        for (; m_at < end; ++m_at)
            value += m_text[m_at] < 0x80 ? static_cast<char>(m_text[m_at]) : '?';
        return is_plain_word(value);
    }
    bool text(std::string& value) {
        std::u16string units;
        for (; m_at < m_text.size() && m_text[m_at] != u'"'; ++m_at) {
            if (m_text[m_at] < 0x20) return false;
            if (m_text[m_at] != u'\\') {
                units += m_text[m_at];
            } else if (!escape(units)) {
                return false;
            }
        }
        if (m_at++ >= m_text.size() || !is_plain_text(units)) return false;
        value = loam::utf8_from_wide(units);
        return true;
    }
    // Leaves off at the escape's last unit.
    bool escape(std::u16string& units) {
        static const std::u16string k_names = u"\"\\/bfnrt";
        static const std::u16string k_units = u"\"\\/\b\f\n\r\t";
        if (++m_at >= m_text.size()) return false;
        const std::size_t plain = k_names.find(m_text[m_at]);
        if (plain != std::u16string::npos) return units += k_units[plain], true;
        std::string digits;
        for (std::size_t i = 1; i <= 4 && m_at + i < m_text.size(); ++i) {
            const char16_t unit = m_text[m_at + i];
            if (unit < 0x80 && std::isxdigit(unit)) digits += static_cast<char>(unit);
        }
        if (m_text[m_at] != u'u' || digits.size() != 4) return false;
        m_at += 4;
        units += static_cast<char16_t>(std::strtoul(digits.c_str(), nullptr, 16));
        return true;
    }

    const std::u16string_view m_text;
    std::size_t m_at = 0;
};

std::optional<std::vector<plain_member>> plainly_read(std::string_view bytes) {
    const auto wide = loam::wide_from_utf8(bytes);
    if (!wide) return {};
    const auto members = plain_reader(*wide).object();
    std::set<std::string> names;
    for (const auto& member : members.value_or(std::vector<plain_member>())) {
        if (!names.insert(member.name).second) return {};
    }
    return members;
}

std::optional<json_object> read(std::string_view bytes) {
    std::string reason;
    const auto object = json_object::parse(bytes, reason);
    require(object.has_value() == reason.empty(), "a refusal has a reason, and nothing else has");
    return object;
}

void compare(const json_object& object, const plain_member& member) {
    const std::string* const text = object.text(member.name);
    const double* const number = object.number(member.name);
    const bool* const truth = object.truth(member.name);
    const bool is_truth = !member.is_text && (member.value == "true" || member.value == "false");
    const bool is_number = !member.is_text && is_plain_number(member.value);
    require((text != nullptr) == member.is_text, "a text is a text");
    require((truth != nullptr) == is_truth, "true and false are no text");
    require((number != nullptr) == is_number, "a number is a number");
    if (text) require(*text == member.value, "the text is what stands there");
    if (truth) require(*truth == (member.value == "true"), "the truth is what stands there");
    if (number) {
        require(*number == std::strtod(member.value.c_str(), nullptr), "so is the number");
    }
}

// An object that was taken whole is refused in part and with anything but blanks behind it.
void cut_and_lengthen(std::string_view bytes) {
    const std::size_t end = bytes.find_last_of('}');
    for (std::size_t size = 0; size <= end; ++size) {
        // Memory of its own size: a sanitizer notices a look past it.
        const std::vector<char> part(bytes.data(), bytes.data() + size);
        require(!read({part.data(), part.size()}), "a part of an object is none");
    }
    const std::string whole(bytes);
    for (const char* more : {"}", "{}", ",", "0", "\"", "\xC2\xA0", "\x0B"}) {
        require(!read(whole + more), "nothing may stand behind an object");
    }
    require(!read(whole + '\0'), "not even a NUL");
    require(read("\r\n\t " + whole + " \t\r\n").has_value(), "blanks may stand around it");
}

// Numbers are written with a fixed count of decimals, which these are enough for.
constexpr int k_decimals = 40;
constexpr double k_least_exact = 1e-20;

void write_and_read(const json_object& object, const std::vector<plain_member>& members) {
    json_line line;
    for (const auto& member : members) {
        if (const auto* text = object.text(member.name)) line.add(member.name, *text);
        if (const auto* number = object.number(member.name)) {
            line.add(member.name, *number, k_decimals);
        }
    }
    const auto again = read(line.text());
    require(again.has_value(), "what is written from it can be read");
    for (const auto& member : members) {
        const auto* text = object.text(member.name);
        const auto* number = object.number(member.name);
        if (text) require(*again->text(member.name) == *text, "a text comes back");
        if (number && std::abs(*number) >= k_least_exact) {
            require(*again->number(member.name) == *number, "a number comes back");
        }
    }
}

// Whatever the bytes are, the program's own writer makes JSON of them.
void write_any(std::string_view bytes) {
    const auto object = read(json_line().add("text", bytes).add("size", bytes.size()).text());
    require(object.has_value() == (bytes.find('\0') == std::string_view::npos),
            "any bytes but a NUL can be sent");
    if (!object) return;
    require(*object->number("size") == static_cast<double>(bytes.size()), "beside a number");
    if (loam::wide_from_utf8(bytes)) require(*object->text("text") == bytes, "as they are");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto object = read(bytes);
    const auto members = plainly_read(bytes);
    require(object.has_value() == members.has_value(), "it is taken when it plainly is JSON");
    if (object) {
        for (const plain_member& member : *members) compare(*object, member);
        cut_and_lengthen(bytes);
        write_and_read(*object, *members);
    }
    write_any(bytes);
    return 0;
}
