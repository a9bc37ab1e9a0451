// loam/xmlrpc.cpp - messages of loam/xmlrpc.h; their values are in xmlrpc_value.cpp.
#include "loam/xmlrpc.h"

#include "loam/out_of_memory.h"
#include "loam/xml_element.h"

using loam::append;
using loam::append_element;
using loam::child_element;
using loam::element_name;
using loam::element_text;
using loam::new_element;

namespace {

zRecord* value_of_fault(const zRecord& message) {
    return child_element(child_element(&message, "fault"), "value");
}

// A response has one parameter.
zRecord* value_of_response(const zRecord& message) {
    return child_element(loam::only_child(child_element(&message, "params")), "value");
}

// Makes the record the message that `fill` makes of an element. The record's own place in a tree
// stays.
template <typename function>
zStatus replace(zRecord& message, const char* name, function fill) {
    const zStatus status = loam::unless_out_of_memory([&] {
        const auto made = new_element(name);
        fill(*made);
        message = *made;
        return 0;
    });
    if (status != 0) message.MakeEmpty();
    return status;
}

}  // namespace

zXMLRPC::zXMLRPC(zRecord& message) : m_message(message) {}

zXMLRPC::~zXMLRPC() = default;

zXMLRPC::Kind zXMLRPC::GetKind() const {
    const std::string_view name = element_name(m_message);
    if (name == "methodCall") {
        return child_element(&m_message, "methodName") != nullptr ? Kind::call : Kind::other;
    }
    if (name != "methodResponse") return Kind::other;
    if (value_of_fault(m_message) != nullptr) return Kind::fault;
    return value_of_response(m_message) != nullptr ? Kind::response : Kind::other;
}

std::string zXMLRPC::MethodName() const {
    if (GetKind() != Kind::call) return {};
    return std::string(element_text(*child_element(&m_message, "methodName")));
}

std::uint32_t zXMLRPC::ParamCount() const {
    const zRecord* const params = child_element(&m_message, "params");
    return params == nullptr ? 0 : params->ChildCount();
}

zXMLRPC::Value zXMLRPC::Param(std::uint32_t index) const {
    if (index >= ParamCount()) return Value();
    return Value(child_element(child_element(&m_message, "params")->Child(index), "value"));
}

zStatus zXMLRPC::Result(Value& out) const {
    const Kind kind = GetKind();
    if (kind == Kind::fault) return k_is_fault;
    if (kind != Kind::response) return k_no_message;
    out = Value(value_of_response(m_message));
    return 0;
}

zStatus zXMLRPC::Fault(zString& message, std::int32_t& code) const {
    if (GetKind() != Kind::fault) return k_no_message;
    const Value fault(value_of_fault(m_message));
    std::int32_t found = 0;
    if (fault.Member("faultCode").AsInt32(found) != 0) return k_bad_value;
    const Value words = fault.Member("faultString");
    const zStatus status = words.AsString(message);
    if (status != 0) return status == -1 && words.IsSet() ? status : k_bad_value;
    code = found;
    return 0;
}

zStatus zXMLRPC::SetCall(const char* method) {
    return replace(m_message, "methodCall", [&](zRecord& call) {
        append(call, new_element("methodName", method == nullptr ? "" : method));
        append_element(call, "params");
    });
}

zStatus zXMLRPC::SetResponse(Value& out) {
    const zStatus status = replace(m_message, "methodResponse", [](zRecord& response) {
        append_element(append_element(append_element(response, "params"), "param"), "value");
    });
    out = Value(status == 0 ? value_of_response(m_message) : nullptr);
    return status;
}

zStatus zXMLRPC::SetFault(const char* message, std::int32_t code) {
    return replace(m_message, "methodResponse", [&](zRecord& response) {
        Value fault(&append_element(append_element(response, "fault"), "value"));
        const bool is_whole = fault.SetStruct() == 0 &&
                              fault.AddMember("faultCode").SetInt32(code) == 0 &&
                              fault.AddMember("faultString").SetString(message) == 0;
        if (!is_whole) throw std::bad_alloc();
    });
}

zXMLRPC::Value zXMLRPC::AddParam() {
    if (GetKind() != Kind::call) return Value();
    Value added;
    loam::unless_out_of_memory([&] {
        zRecord* params = child_element(&m_message, "params");
        if (params == nullptr) params = &append_element(m_message, "params");
        auto param = new_element("param");
        zRecord& value = append_element(*param, "value");
        append(*params, std::move(param));
        added.m_record = &value;
        return 0;
    });
    return added;
}
