// loam/xmlrpc_value.cpp - zXMLRPC::Value of loam/xmlrpc.h.
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <utility>

#include "loam/ascii.h"
#include "loam/base64_text.h"
#include "loam/out_of_memory.h"
#include "loam/record_state.h"
#include "loam/xml.h"
#include "loam/xml_element.h"
#include "loam/xmlrpc.h"

using loam::append_element;
using loam::child_element;
using loam::element_name;
using loam::element_text;
using loam::new_element;
using Type = zXMLRPC::Type;

namespace {

// The names of each type; the first of several is the one that is written.
constexpr std::pair<std::string_view, Type> k_types[] = {
    {"i4", Type::int32},
    {"int", Type::int32},
    {"i8", Type::int64},
    {"boolean", Type::boolean},
    {"string", Type::text},
    {"double", Type::real},
    {"dateTime.iso8601", Type::date},
    {"base64", Type::bytes},
    {"nil", Type::nil},
    {"array", Type::array},
    {"struct", Type::structure},
};

std::string_view name_of(Type type) {
    for (const auto& [name, each] : k_types) {
        if (each == type) return name;
    }
    return {};
}

Type type_named(std::string_view name) {
    if (name.starts_with("ex:")) name.remove_prefix(3);
    for (const auto& [each, type] : k_types) {
        if (each == name) return type;
    }
    return Type::unknown;
}

// The element inside a value that names its type; null for a value without a type.
zRecord* typed(const zRecord* value) { return loam::only_child(value); }

// The text of a value of whatever type.
std::string_view text_of(const zRecord& value) {
    const zRecord* const inner = typed(&value);
    return element_text(inner == nullptr ? value : *inner);
}

// A plus sign may stand in front, where std::from_chars knows none.
template <typename number>
zStatus read_number(std::string_view text, number& out) {
    text = loam::trimmed(text);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (stop != end || error == std::errc::invalid_argument) return zXMLRPC::k_bad_value;
    if (error == std::errc::result_out_of_range) return zXMLRPC::k_out_of_range;
    out = value;
    return 0;
}

template <typename number>
zStatus read_integer(const zRecord* value, Type type, number& out) {
    if (value == nullptr) return -1;
    if (type != Type::int32 && type != Type::int64) return zXMLRPC::k_other_type;
    return read_number(text_of(*value), out);
}

zStatus read_text(const zRecord* value, bool is_of_type, zString& out) {
    if (value == nullptr) return -1;
    if (!is_of_type) return zXMLRPC::k_other_type;
    return loam::unless_out_of_memory([&] {
        out = std::string(text_of(*value));
        return 0;
    });
}

// Puts `content` in the place of all that the value held. Only the first step needs memory, so that
// a value without any is what it was.
zStatus replace(zRecord& value, std::unique_ptr<zRecord> content) {
    loam::append(value, std::move(content));
    while (value.ChildCount() > 1) delete value.TakeChild(value.ChildCount() - 2);
    value.RemoveID(zXML::k_text);
    return 0;
}

zStatus set_typed(zRecord* value, Type type, std::string_view text) {
    if (value == nullptr) return -1;
    return loam::unless_out_of_memory(
        [&] { return replace(*value, new_element(name_of(type), text)); });
}

template <typename number, typename... format>
zStatus set_number(zRecord* value, Type type, number what, format... how) {
    // The longest double in fixed form has a sign, 309 digits, or 1074 behind its point.
    std::array<char, 1100> text;
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), what, how...);
    if (error != std::errc()) return zXMLRPC::k_bad_value;
    return set_typed(value, type, {text.data(), static_cast<std::size_t>(end - text.data())});
}

// What holds the elements of an array or the members of a structure; null for other values.
zRecord* container_of(const zRecord* value, Type type) {
    if (type == Type::structure) return typed(value);
    return type == Type::array ? child_element(typed(value), "data") : nullptr;
}

}  // namespace

Type zXMLRPC::Value::GetType() const {
    if (m_record == nullptr) return Type::unknown;
    const auto& state = loam::record_access::state_of(*m_record);
    if (state.children.empty()) return Type::text;
    // Text beside the type means neither the one nor the other.
    const zRecord* const inner = typed(m_record);
    if (inner == nullptr || state.variables.find(zXML::k_text) != nullptr) return Type::unknown;
    const Type type = type_named(element_name(*inner));
    const bool has_elements = type == Type::array || type == Type::structure;
    const bool has_children = !loam::record_access::state_of(*inner).children.empty();
    if (!has_elements) return has_children ? Type::unknown : type;
    // An empty structure may still hold the white space of its writer's layout.
    if (!loam::trimmed(element_text(*inner)).empty()) return Type::unknown;
    if (type == Type::array && child_element(inner, "data") == nullptr) return Type::unknown;
    return type;
}

zStatus zXMLRPC::Value::AsInt32(std::int32_t& out) const {
    return read_integer(m_record, GetType(), out);
}

zStatus zXMLRPC::Value::AsInt64(std::int64_t& out) const {
    return read_integer(m_record, GetType(), out);
}

zStatus zXMLRPC::Value::AsBool(bool& out) const {
    if (m_record == nullptr) return -1;
    if (GetType() != Type::boolean) return k_other_type;
    const std::string_view text = loam::trimmed(text_of(*m_record));
    if (text != "0" && text != "1") return k_bad_value;
    out = text == "1";
    return 0;
}

zStatus zXMLRPC::Value::AsDouble(double& out) const {
    if (m_record == nullptr) return -1;
    const Type type = GetType();
    if (type != Type::real && type != Type::int32 && type != Type::int64) return k_other_type;
    double value = 0;
    const zStatus status = read_number(text_of(*m_record), value);
    if (status != 0) return status;
    if (!std::isfinite(value)) return k_bad_value;
    out = value;
    return 0;
}

zStatus zXMLRPC::Value::AsString(zString& out) const {
    return read_text(m_record, GetType() == Type::text, out);
}

zStatus zXMLRPC::Value::AsDate(zString& out) const {
    const zStatus status = read_text(m_record, GetType() == Type::date, out);
    if (status != 0) return status;
    return loam::unless_out_of_memory([&] {
        out = std::string(loam::trimmed(out.View()));
        return 0;
    });
}

zStatus zXMLRPC::Value::AsBytes(zString& out) const {
    if (m_record == nullptr) return -1;
    if (GetType() != Type::bytes) return k_other_type;
    return loam::unless_out_of_memory([&] {
        auto bytes = loam::bytes_from_base64(text_of(*m_record));
        if (!bytes) return k_bad_value;
        out = *std::move(bytes);
        return zStatus{0};
    });
}

std::uint32_t zXMLRPC::Value::Count() const {
    const zRecord* const container = container_of(m_record, GetType());
    return container == nullptr ? 0 : container->ChildCount();
}

zXMLRPC::Value zXMLRPC::Value::Item(std::uint32_t index) const {
    const Type type = GetType();
    const zRecord* const container = container_of(m_record, type);
    zRecord* const item = container == nullptr ? nullptr : container->Child(index);
    if (item == nullptr) return Value();
    if (type == Type::structure) return Value(child_element(item, "value"));
    return element_name(*item) == "value" ? Value(item) : Value();
}

std::string zXMLRPC::Value::MemberName(std::uint32_t index) const {
    if (GetType() != Type::structure || index >= Count()) return {};
    const zRecord* const name = child_element(typed(m_record)->Child(index), "name");
    return name == nullptr ? std::string() : std::string(element_text(*name));
}

zXMLRPC::Value zXMLRPC::Value::Member(const char* name) const {
    if (name == nullptr || GetType() != Type::structure) return Value();
    const zRecord* const members = typed(m_record);
    for (std::uint32_t i = 0; i < members->ChildCount(); ++i) {
        const zRecord* const found = child_element(members->Child(i), "name");
        if (found != nullptr && element_text(*found) == name) {
            return Value(child_element(members->Child(i), "value"));
        }
    }
    return Value();
}

zStatus zXMLRPC::Value::SetInt32(std::int32_t value) {
    return set_number(m_record, Type::int32, value);
}

zStatus zXMLRPC::Value::SetInt64(std::int64_t value) {
    return set_number(m_record, Type::int64, value);
}

zStatus zXMLRPC::Value::SetBool(bool value) {
    return set_typed(m_record, Type::boolean, value ? "1" : "0");
}

zStatus zXMLRPC::Value::SetDouble(double value) {
    if (m_record != nullptr && !std::isfinite(value)) return k_bad_value;
    return set_number(m_record, Type::real, value, std::chars_format::fixed);
}

zStatus zXMLRPC::Value::SetString(const char* text, std::uint32_t length) {
    const std::string_view view = text == nullptr               ? std::string_view()
                                  : length == zString::k_to_nul ? std::string_view(text)
                                                                : std::string_view(text, length);
    return set_typed(m_record, Type::text, view);
}

zStatus zXMLRPC::Value::SetDate(const char* iso8601) {
    return set_typed(m_record, Type::date, iso8601 == nullptr ? "" : iso8601);
}

zStatus zXMLRPC::Value::SetBytes(const void* bytes, std::uint32_t length) {
    const std::string_view view(static_cast<const char*>(bytes), bytes == nullptr ? 0 : length);
    return loam::unless_out_of_memory(
        [&] { return set_typed(m_record, Type::bytes, loam::base64_from(view)); });
}

zStatus zXMLRPC::Value::SetNil() { return set_typed(m_record, Type::nil, {}); }

zStatus zXMLRPC::Value::SetArray() {
    if (m_record == nullptr) return -1;
    return loam::unless_out_of_memory([&] {
        auto array = new_element(name_of(Type::array));
        append_element(*array, "data");
        return replace(*m_record, std::move(array));
    });
}

zStatus zXMLRPC::Value::SetStruct() { return set_typed(m_record, Type::structure, {}); }

zXMLRPC::Value zXMLRPC::Value::AddItem() {
    if (GetType() != Type::array) return Value();
    Value added;
    loam::unless_out_of_memory([&] {
        added.m_record = &append_element(*container_of(m_record, Type::array), "value");
        return 0;
    });
    return added;
}

zXMLRPC::Value zXMLRPC::Value::AddMember(const char* name) {
    if (GetType() != Type::structure || name == nullptr) return Value();
    Value added;
    loam::unless_out_of_memory([&] {
        auto member = new_element("member");
        loam::append(*member, new_element("name", name));
        zRecord& value = append_element(*member, "value");
        loam::append(*typed(m_record), std::move(member));
        added.m_record = &value;
        return 0;
    });
    return added;
}

zStatus zXMLRPC::Value::SetCopy(const Value& other) {
    if (m_record == nullptr || other.m_record == nullptr) return -1;
    return loam::unless_out_of_memory([&] {
        *m_record = *other.m_record;
        return 0;
    });
}
