// host/live/json_read.cpp - see the header for the contract.
#include "host/live/json_read.h"

#include <charconv>
#include <cstdint>

#include "host/utf8.h"

namespace pennywort::host {

namespace {

void append_utf8(std::string& out, std::uint32_t code) {
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        tail(0);
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

char plain_escape(char c) {
    constexpr std::string_view names = "\"\\/bfnrt";
    constexpr std::string_view means = "\"\\/\b\f\n\r\t";
    const auto at = names.find(c);
    return at == std::string_view::npos ? '\0' : means[at];
}

std::size_t digits_of(std::string_view text) {
    const auto end = text.find_first_not_of("0123456789");
    return end == std::string_view::npos ? text.size() : end;
}

// How many bytes the number at the front has; 0 if it is none. The library's own reading takes more
// than JSON does: "01", "1." and ".5" would be numbers to us and to no other reader.
std::size_t number_length(std::string_view text) {
    std::size_t at = text.substr(0, 1) == "-" ? 1 : 0;
    const std::size_t whole = digits_of(text.substr(at));
    if (whole == 0 || (whole > 1 && text[at] == '0')) return 0;
    at += whole;
    if (text.substr(at, 1) == ".") {
        const std::size_t fraction = digits_of(text.substr(at + 1));
        if (fraction == 0) return 0;
        at += 1 + fraction;
    }
    if (text.substr(at, 1) != "e" && text.substr(at, 1) != "E") return at;
    ++at;
    if (text.substr(at, 1) == "+" || text.substr(at, 1) == "-") ++at;
    const std::size_t exponent = digits_of(text.substr(at));
    return exponent == 0 ? 0 : at + exponent;
}

// Takes a text apart from its front. Each step answers false, with a reason, when it cannot.
class reader {
public:
    explicit reader(std::string_view text) : m_rest(text) {}

    bool read_object(std::map<std::string, json_value>& members);
    const std::string& reason() const { return m_reason; }

private:
    bool fail(const char* reason) {
        m_reason = reason;
        return false;
    }
    void skip_blanks() {
        const auto end = m_rest.find_first_not_of(" \t\r\n");
        m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end);
    }
    bool take(std::string_view word) {
        if (m_rest.substr(0, word.size()) != word) return false;
        m_rest.remove_prefix(word.size());
        return true;
    }
    bool read_member(std::map<std::string, json_value>& members);
    bool read_value(json_value& value);
    bool read_number(json_value& value);
    bool read_string(std::string& text);
    bool read_escape(std::string& text);
    bool read_unicode(std::string& text);
    bool read_code(std::uint32_t& code);

    std::string_view m_rest;
    std::string m_reason;
};

bool reader::read_object(std::map<std::string, json_value>& members) {
    skip_blanks();
    if (!take("{")) return fail("the body is no JSON object");
    skip_blanks();
    bool more = !take("}");
    while (more) {
        if (!read_member(members)) return false;
        skip_blanks();
        more = take(",");
        if (!more && !take("}")) return fail("a comma or } is missing in the JSON");
    }
    skip_blanks();
    return m_rest.empty() || fail("something stands behind the JSON object");
}

bool reader::read_member(std::map<std::string, json_value>& members) {
    std::string name;
    skip_blanks();
    if (!take("\"") || !read_string(name)) return fail("a name is missing in the JSON");
    skip_blanks();
    if (!take(":")) return fail("a colon is missing in the JSON");
    skip_blanks();
    json_value value;
    if (!read_value(value)) return false;
    const bool is_new = members.emplace(std::move(name), std::move(value)).second;
    return is_new || fail("a name stands twice in the JSON");
}

bool reader::read_value(json_value& value) {
    if (take("\"")) return read_string(value.emplace<std::string>());
    if (take("null")) return true;
    if (take("true")) {
        value = true;
        return true;
    }
    if (take("false")) {
        value = false;
        return true;
    }
    return read_number(value);
}

bool reader::read_number(json_value& value) {
    const auto digits = m_rest.substr(0, number_length(m_rest));
    if (digits.empty()) {
        return fail("a member of the JSON is no text, number, true, false or null");
    }
    double number = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (end.ec != std::errc()) return fail("a number of the JSON is too large or too small");
    m_rest.remove_prefix(digits.size());
    value = number;
    return true;
}

bool reader::read_string(std::string& text) {
    while (!m_rest.empty()) {
        const char c = m_rest.front();
        m_rest.remove_prefix(1);
        if (c == '"') return true;
        if (static_cast<unsigned char>(c) < 0x20) return fail("a control character in the JSON");
        if (c != '\\') {
            text += c;
        } else if (!read_escape(text)) {
            return false;
        }
    }
    return fail("a text of the JSON does not end");
}

bool reader::read_escape(std::string& text) {
    if (take("u")) return read_unicode(text);
    const char c = m_rest.empty() ? '\0' : plain_escape(m_rest.front());
    if (c == '\0') return fail("an unknown escape in the JSON");
    m_rest.remove_prefix(1);
    text += c;
    return true;
}

bool reader::read_code(std::uint32_t& code) {
    const auto digits = m_rest.substr(0, 4);
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (digits.size() < 4 || end.ptr != digits.data() + 4) return fail("a bad \\u in the JSON");
    m_rest.remove_prefix(4);
    return true;
}

bool reader::read_unicode(std::string& text) {
    std::uint32_t code = 0;
    if (!read_code(code)) return false;
    if (code >= 0xD800 && code <= 0xDBFF) {
        std::uint32_t low = 0;
        if (!take("\\u") || !read_code(low)) return fail("half of a surrogate pair in the JSON");
        if (low < 0xDC00 || low > 0xDFFF) return fail("half of a surrogate pair in the JSON");
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    } else if (code == 0 || (code >= 0xDC00 && code <= 0xDFFF)) {
        return fail("a NUL or half of a surrogate pair in the JSON");
    }
    append_utf8(text, code);
    return true;
}

template <class T>
const T* member(const std::map<std::string, json_value>& members, const std::string& name) {
    const auto found = members.find(name);
    return found == members.end() ? nullptr : std::get_if<T>(&found->second);
}

}  // namespace

std::optional<json_object> json_object::parse(std::string_view text, std::string& reason) {
    if (!is_utf8(text)) {
        reason = "the JSON is no UTF-8";
        return {};
    }
    json_object result;
    reader from(text);
    if (from.read_object(result.m_members)) return result;
    reason = from.reason();
    return {};
}

const std::string* json_object::text(const std::string& name) const {
    return member<std::string>(m_members, name);
}

const double* json_object::number(const std::string& name) const {
    return member<double>(m_members, name);
}

const bool* json_object::truth(const std::string& name) const {
    return member<bool>(m_members, name);
}

}  // namespace pennywort::host
