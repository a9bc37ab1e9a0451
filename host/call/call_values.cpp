// host/call/call_values.cpp - see the header for the contract.
#include "host/call/call_values.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/text/ascii.h"
#include "loam/base64.h"
#include "loam/xml.h"

namespace pennywort::host {

namespace {

using Value = zXMLRPC::Value;
using Type = zXMLRPC::Type;

constexpr char k_base64[] = "$base64";
constexpr char k_date[] = "$date";
// Deeper JSON is refused: a value takes a few elements of XML, which has a depth of its own.
constexpr int k_deepest = 200;

constexpr char k_no_memory[] = "there is no memory for it";
constexpr char k_no_character[] = "it holds a character that XML cannot";

std::string outcome_of(zStatus status) { return status == 0 ? "" : k_no_memory; }

std::uint32_t length_of(const std::string& text) { return static_cast<std::uint32_t>(text.size()); }

std::string set_integer(Value value, std::int64_t number) {
    using narrow = std::numeric_limits<std::int32_t>;
    const bool is_narrow = number >= narrow::min() && number <= narrow::max();
    return outcome_of(is_narrow ? value.SetInt32(static_cast<std::int32_t>(number))
                                : value.SetInt64(number));
}

std::string set_at_depth(Value value, const json& from, int depth);

std::string set_array(Value value, const json& from, int depth) {
    if (value.SetArray() != 0) return k_no_memory;
    for (const json& item : from) {
        std::string wrong = set_at_depth(value.AddItem(), item, depth + 1);
        if (!wrong.empty()) return wrong;
    }
    return {};
}

// The text in a reader's own element, as it would stand in XML, so that it is read the same way.
std::string set_base64(Value value, const std::string& text) {
    zRecord element;
    const std::string xml = "<methodCall><methodName/><params><param><value><base64>" + text +
                            "</base64></value></param></params></methodCall>";
    const bool is_plain = text.find_first_of("<&") == std::string::npos;
    zString bytes;
    if (!is_plain ||
        zXML::ParseBuffer(255, &element, xml.data(), static_cast<std::int32_t>(xml.size())) != 0 ||
        zXMLRPC(element).Param(0).AsBytes(bytes) != 0) {
        return std::string(k_base64) + " is no base64";
    }
    return outcome_of(value.SetBytes(bytes.CString(), bytes.Length()));
}

// "d" stands for a digit, all else for itself.
bool is_like(std::string_view text, std::string_view form) {
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char c, char like) {
        return like == 'd' ? text::is_digit(c) : c == like;
    });
}

// Both forms of ISO 8601, the short one of XML-RPC and the one with marks, and what may stand
// behind them: a part of a second and the zone. Servers send all of these, so that what they sent
// can be sent back.
bool is_date(std::string_view text) {
    constexpr std::string_view k_short = "ddddddddTdd:dd:dd";
    constexpr std::string_view k_long = "dddd-dd-ddTdd:dd:dd";
    const std::string_view form = text.substr(0, 5).ends_with('-') ? k_long : k_short;
    if (!is_like(text.substr(0, form.size()), form)) return false;
    text.remove_prefix(form.size());
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        const std::size_t digits = text.find_first_not_of("0123456789");
        if (digits == 0 || text.empty()) return false;
        text.remove_prefix(std::min(digits, text.size()));
    }
    if (text.starts_with('-') || text.starts_with('+')) {
        text.remove_prefix(1);
        return is_like(text, "dd:dd") || is_like(text, "dddd");
    }
    return text.empty() || text == "Z";
}

std::string set_date(Value value, const std::string& text) {
    if (!is_date(text)) return std::string(k_date) + " is no date like 20260131T14:08:55";
    return outcome_of(value.SetDate(text.c_str()));
}

std::string set_text(Value value, const std::string& text) {
    if (!is_for_xml(text)) return k_no_character;
    return outcome_of(value.SetString(text.data(), length_of(text)));
}

std::string set_object(Value value, const json& from, int depth) {
    if (from.size() == 1 && from.begin()->is_string()) {
        const auto& text = from.begin()->get_ref<const std::string&>();
        if (from.begin().key() == k_base64) return set_base64(value, text);
        if (from.begin().key() == k_date) return set_date(value, text);
    }
    if (value.SetStruct() != 0) return k_no_memory;
    for (const auto& [name, member] : from.items()) {
        if (!is_for_xml(name)) return k_no_character;
        std::string wrong = set_at_depth(value.AddMember(name.c_str()), member, depth + 1);
        if (!wrong.empty()) return wrong;
    }
    return {};
}

std::string set_at_depth(Value value, const json& from, int depth) {
    if (depth > k_deepest) return "it is nested too deeply";
    switch (from.type()) {
        case json::value_t::null:
            return outcome_of(value.SetNil());
        case json::value_t::boolean:
            return outcome_of(value.SetBool(from.get<bool>()));
        case json::value_t::number_unsigned:
            if (from.get<std::uint64_t>() > INT64_MAX) return "a number does not fit into 64 bits";
            return set_integer(value, from.get<std::int64_t>());
        case json::value_t::number_integer:
            return set_integer(value, from.get<std::int64_t>());
        case json::value_t::number_float:
            return outcome_of(value.SetDouble(from.get<double>()));
        case json::value_t::string:
            return set_text(value, from.get_ref<const std::string&>());
        case json::value_t::array:
            return set_array(value, from, depth);
        default:
            return set_object(value, from, depth);
    }
}

bool get_array(const Value& value, json& out) {
    out = json::array();
    for (std::uint32_t i = 0; i < value.Count(); ++i) {
        out.emplace_back();
        if (!get_value(value.Item(i), out.back())) return false;
    }
    return true;
}

bool get_struct(const Value& value, json& out) {
    out = json::object();
    // An object looks through all of its members for a name. A server decides how many there are.
    auto& members = out.get_ref<json::object_t&>();
    std::unordered_map<std::string, std::size_t> places;
    const std::uint32_t count = value.Count();
    members.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string name = value.MemberName(i);
        const auto [place, is_new] = places.try_emplace(name, members.size());
        if (is_new) members.emplace_back(name, nullptr);
        if (!get_value(value.Item(i), members.data()[place->second].second)) return false;
    }
    return true;
}

std::string base64_of(const zString& bytes) {
    const auto length = static_cast<int>(bytes.Length());
    std::vector<char> text(static_cast<std::size_t>(Base64encode_len(length)));
    Base64encode(text.data(), bytes.CString(), length);
    return text.data();
}

template <typename number>
bool put(zStatus status, const number& value, json& out) {
    if (status == 0) out = value;
    return status == 0;
}

bool get_number(const Value& value, json& out) {
    std::int64_t whole = 0;
    double real = 0;
    if (value.GetType() == Type::real) return put(value.AsDouble(real), real, out);
    return put(value.AsInt64(whole), whole, out);
}

bool get_text(const Value& value, json& out) {
    zString text;
    const zStatus status = value.AsString(text);
    return put(status, std::string(text.View()), out);
}

bool get_date(const Value& value, json& out) {
    zString text;
    const zStatus status = value.AsDate(text);
    return put(status, json{{k_date, std::string(text.View())}}, out);
}

bool get_bytes(const Value& value, json& out) {
    zString bytes;
    const zStatus status = value.AsBytes(bytes);
    return put(status, json{{k_base64, base64_of(bytes)}}, out);
}

}  // namespace

// Asked of the writer, which alone knows: without this, what cannot be sent would be told as a
// failed call.
bool is_for_xml(const std::string& text) {
    zRecord element;
    element.SetCString(zXML::k_name, "text");
    element.SetText(zXML::k_text, text.data(), length_of(text));
    zBuffer written;
    return zXML::RecordToBuffer(&written, element, 0, false, true) != zXML::k_bad_text;
}

std::string set_value(Value value, const json& from) { return set_at_depth(value, from, 0); }

bool get_value(const Value& value, json& out) {
    bool is_true = false;
    switch (value.GetType()) {
        case Type::int32:
        case Type::int64:
        case Type::real:
            return get_number(value, out);
        case Type::boolean:
            return put(value.AsBool(is_true), is_true, out);
        case Type::text:
            return get_text(value, out);
        case Type::date:
            return get_date(value, out);
        case Type::bytes:
            return get_bytes(value, out);
        case Type::nil:
            out = nullptr;
            return true;
        case Type::array:
            return get_array(value, out);
        case Type::structure:
            return get_struct(value, out);
        default:
            return false;
    }
}

}  // namespace pennywort::host
