// host/app/json.cpp - see the header for the contract.
#include "host/app/json.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "core/text/utf8.h"
#include "host/app/terminal_text.h"

namespace pennywort::host {

namespace {

using value = nlohmann::json;

// Takes the events of the parser one by one, so that a text that is not wanted costs no more memory
// than what was read of it before the fault.
class flat_reader final : public nlohmann::json_sax<value> {
public:
    explicit flat_reader(value& members) : m_members(members) {}

    const std::string& reason() const { return m_reason; }

    bool start_object(std::size_t) override {
        if (std::exchange(m_is_inside, true)) return fail("the JSON holds an object in an object");
        return true;
    }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return fail("the JSON holds a list"); }
    bool end_array() override { return true; }
    bool key(std::string& name) override {
        if (has_nul(name)) return fail("a name in the JSON holds a NUL");
        if (m_members.contains(name)) return fail("a name stands twice in the JSON");
        m_name = std::move(name);
        return true;
    }
    bool null() override { return take(nullptr); }
    bool boolean(bool truth) override { return take(truth); }
    bool number_integer(std::int64_t number) override { return take(number); }
    bool number_unsigned(std::uint64_t number) override { return take(number); }
    // A number too small for a double is read as 0, which would be taken for what was meant.
    bool number_float(double number, const std::string& digits) override {
        const auto mantissa = digits.substr(0, digits.find_first_of("eE"));
        const bool is_lost = number == 0 && mantissa.find_first_of("123456789") != mantissa.npos;
        return is_lost ? fail("a number of the JSON is too small") : take(number);
    }
    bool string(std::string& text) override {
        return has_nul(text) ? fail("a text of the JSON holds a NUL") : take(std::move(text));
    }
    bool binary(value::binary_t&) override { return fail("the JSON holds bytes"); }
    bool parse_error(std::size_t at, const std::string&, const value::exception&) override {
        return fail("the body is no JSON object in UTF-8: see byte " + std::to_string(at));
    }

private:
    static bool has_nul(const std::string& text) { return text.find('\0') != text.npos; }
    bool fail(std::string reason) {
        m_reason = std::move(reason);
        return false;
    }
    bool take(value&& member) {
        if (!m_is_inside) return fail("the body is no JSON object");
        m_members[m_name] = std::move(member);
        return true;
    }

    value& m_members;
    std::string m_name;
    std::string m_reason;
    bool m_is_inside = false;
};

// The library escapes what stands before the blank. In JSON the others can stand in texts only; all
// of them have four digits at most.
std::string with_escapes(std::string_view line) {
    std::string escaped;
    escaped.reserve(line.size());
    while (!line.empty()) {
        const text::utf8_piece piece = text::first_character(line);
        if (is_plain(piece.point)) {
            escaped += line.substr(0, piece.bytes);
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(piece.point));
            escaped += code;
        }
        line.remove_prefix(piece.bytes);
    }
    return escaped;
}

template <class T>
const T* member(const value& members, const std::string& name) {
    const auto found = members.find(name);
    return found == members.end() ? nullptr : found->template get_ptr<const T*>();
}

}  // namespace

std::string json_text(const json& value) {
    return with_escapes(value.dump(-1, ' ', false, json::error_handler_t::replace));
}

double rounded_to(double value, int decimals) {
    const double factor = std::pow(10.0, decimals);
    const double scaled = std::round(value * factor) / factor;
    return std::isfinite(scaled) ? scaled : value;
}

std::optional<json_object> json_object::parse(std::string_view text, std::string& reason) {
    // The parser passes over a byte order mark, and takes a NUL for the end of the text.
    if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != text.npos) {
        reason = "the JSON begins with a byte order mark or holds a NUL";
        return {};
    }
    json_object result;
    flat_reader reader(result.m_members);
    if (value::sax_parse(text, &reader)) return result;
    reason = reader.reason();
    return {};
}

const std::string* json_object::text(const std::string& name) const {
    return member<std::string>(m_members, name);
}

const bool* json_object::truth(const std::string& name) const {
    return member<bool>(m_members, name);
}

std::optional<double> json_object::number(const std::string& name) const {
    const auto found = m_members.find(name);
    if (found == m_members.end() || !found->is_number()) return {};
    return found->get<double>();
}

}  // namespace pennywort::host
